# add_guest_test(NAME <name> COMMAND <program> [args...]
#                [OPTIONS <sandbox/guest options>...] [EXPECT <outcome>]
#                [LABELS <labels>...] [TIMEOUT <seconds>])
#
# Runs a plain test program (a GoogleTest binary, say) inside a sandbox
# guest: `sandbox/guest --output file <options> run -- <program> <args>`.
# The test passes when the guest's outcome is EXPECT ("exit 0" unless given:
# "reboot", "halt", "exit N"); the program's output is printed.
# <program> may be a target name. OPTIONS takes the launcher's options and
# two of the runner's own: --scratch-disk SIZE and --scratch-usb-disk SIZE
# attach a new sparse image (SIZE as for truncate, e.g. 64M), removed after.
function(add_guest_test)
  cmake_parse_arguments(PARSE_ARGV 0 GT "" "NAME;EXPECT;TIMEOUT" "COMMAND;OPTIONS;LABELS")
  if(NOT GT_NAME OR NOT GT_COMMAND)
    message(FATAL_ERROR "add_guest_test: NAME and COMMAND are required")
  endif()
  if(NOT GT_EXPECT)
    set(GT_EXPECT "exit 0")
  endif()
  if(NOT GT_LABELS)
    set(GT_LABELS system)
  endif()
  if(NOT GT_TIMEOUT)
    set(GT_TIMEOUT 900)
  endif()
  list(POP_FRONT GT_COMMAND program)
  if(TARGET ${program})
    set(program $<TARGET_FILE:${program}>)
  endif()
  set(initrd "")
  if(TARGET sandbox-initramfs)
    set(initrd --initrd ${CMAKE_BINARY_DIR}/sandbox/initrd.img)
  endif()
  add_test(NAME ${GT_NAME}
    COMMAND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/run-guest-test --expect ${GT_EXPECT} ${initrd}
            ${GT_OPTIONS} -- ${program} ${GT_COMMAND})
  set_tests_properties(${GT_NAME} PROPERTIES LABELS "${GT_LABELS}" TIMEOUT ${GT_TIMEOUT})
endfunction()
