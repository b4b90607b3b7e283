# Installation layout and the Debian package of the wizard.
#
#   cmake --install <build> --prefix /usr    sbin/InstallWizard, its man page, its docs
#   cpack --config <build>/CPackConfig.cmake -G DEB
#
# The executable's own install rule lives beside its target (wizard/CMakeLists.txt);
# everything else the package carries is declared here. Nothing of the tests, the
# benchmarks or the static libraries is installed.

set(WIZARD_PACKAGE_NAME "vidorama-install-wizard")
# The project may not declare a version yet; the package needs one all the same.
if(PROJECT_VERSION)
  set(WIZARD_PACKAGE_VERSION "${PROJECT_VERSION}")
else()
  set(WIZARD_PACKAGE_VERSION "1.0.0")
endif()
set(WIZARD_PACKAGE_MAINTAINER "Wizard Team <team@vidorama.example>"
    CACHE STRING "Maintainer field of the Debian package")

# Man page, compressed as Debian wants it (-n: no name or time stamp, so that two
# builds of the same page give the same bytes).
find_program(WIZARD_GZIP gzip REQUIRED)
set(WIZARD_MAN_SOURCE "${PROJECT_SOURCE_DIR}/doc/InstallWizard.8")
set(WIZARD_MAN_DIR "${PROJECT_BINARY_DIR}/doc")
set(WIZARD_MAN_PAGE "${WIZARD_MAN_DIR}/InstallWizard.8.gz")
add_custom_command(
  OUTPUT "${WIZARD_MAN_PAGE}"
  COMMAND ${CMAKE_COMMAND} -E make_directory "${WIZARD_MAN_DIR}"
  COMMAND ${CMAKE_COMMAND} -E copy "${WIZARD_MAN_SOURCE}" "${WIZARD_MAN_DIR}/InstallWizard.8"
  COMMAND "${WIZARD_GZIP}" -9 -n -f "${WIZARD_MAN_DIR}/InstallWizard.8"
  DEPENDS "${WIZARD_MAN_SOURCE}"
  COMMENT "Compressing the man page InstallWizard.8"
  VERBATIM)
add_custom_target(InstallWizardManPage ALL DEPENDS "${WIZARD_MAN_PAGE}")

install(FILES "${WIZARD_MAN_PAGE}" DESTINATION share/man/man8
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(FILES "${CMAKE_CURRENT_LIST_DIR}/copyright" "${CMAKE_CURRENT_LIST_DIR}/README.Debian"
        DESTINATION "share/doc/${WIZARD_PACKAGE_NAME}"
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# Debian package. Values reach CPack exactly as written here (newlines, regexes).
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "${WIZARD_PACKAGE_NAME}")
set(CPACK_PACKAGE_VERSION "${WIZARD_PACKAGE_VERSION}")
set(CPACK_PACKAGE_VENDOR "Vidorama")
set(CPACK_PACKAGE_CONTACT "${WIZARD_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "installation, rescue and maintenance wizard of the Vidorama video server")
# Set explicitly: otherwise CPack falls back on its own generic description file.
set(CPACK_PACKAGE_DESCRIPTION
    "A full-screen, text-mode program for the server's console. Started from the
bootable USB key it partitions and formats the target disk, installs product
versions from the key's packages, sets up syslinux and extlinux and writes the
network settings of the installed system. Started from the installed disk it
switches between and removes installed versions. It also clears the DOS
configuration lines, runs hardware maintenance tools and resets the BIOS
settings of the RB417 board.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${WIZARD_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION "admin")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
find_program(WIZARD_DPKG dpkg)
if(WIZARD_DPKG)
  execute_process(COMMAND "${WIZARD_DPKG}" --print-architecture
                  OUTPUT_VARIABLE WIZARD_DEB_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${WIZARD_DEB_ARCHITECTURE}")
endif()

# The shared libraries come from dpkg-shlibdeps (package dpkg-dev); the programs the
# wizard runs through the shell are listed by hand:
#   udevadm (udev), mkfs.fat (dosfstools), mkfs.ext4 and chattr (e2fsprogs),
#   mkswap (util-linux), insmod (kmod), syslinux, the syslinux modules and mbr.bin
#   (syslinux-common), extlinux, unzip, ln and rm (coreutils), halt and
#   /sbin/reboot (systemd-sysv or sysvinit-core), and the augeas lenses that
#   libaugeas loads at run time for the network files.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(WIZARD_PROGRAM_DEPENDS
    "udev"
    "dosfstools"
    "e2fsprogs"
    "util-linux"
    "kmod"
    "syslinux"
    "syslinux-common"
    "extlinux"
    "unzip"
    "coreutils"
    "systemd-sysv | sysvinit-core"
    "augeas-lenses")
list(JOIN WIZARD_PROGRAM_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)

# "make package_source" should not sweep build trees into the archive.
set(CPACK_SOURCE_GENERATOR "TGZ")
set(CPACK_SOURCE_IGNORE_FILES "/\\.git/" "/build[^/]*/" "/\\.cache/")

include(CPack)
