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
#
# FILTERS <filter>... : <program> (a GoogleTest target) runs with
# --gtest_filter=<filter>, once per filter, one after the other in the same
# guest. A filter that matches nothing passes unrun, so every program run with
# filters gets a unit test, GuestFilters.<program>, which lists the program's
# tests on the host and fails unless each one is selected by exactly one of the
# filters of all its guest tests (an unfiltered run counts as the filter "*").
# --gtest_filter in COMMAND is refused: it would escape that check.
function(add_guest_test)
  cmake_parse_arguments(PARSE_ARGV 0 GT "" "NAME;EXPECT;TIMEOUT" "COMMAND;OPTIONS;LABELS;FILTERS")
  if(NOT GT_NAME OR NOT GT_COMMAND)
    message(FATAL_ERROR "add_guest_test: NAME and COMMAND are required")
  endif()
  foreach(arg IN LISTS GT_COMMAND)
    if(arg MATCHES "--gtest_filter")
      message(FATAL_ERROR "add_guest_test(${GT_NAME}): give gtest filters as FILTERS, "
                          "so that GuestFilters.<program> checks them")
    endif()
  endforeach()
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
    _guest_test_filters(${GT_NAME} ${program} "${GT_FILTERS}")
    set(program $<TARGET_FILE:${program}>)
  elseif(GT_FILTERS)
    message(FATAL_ERROR "add_guest_test(${GT_NAME}): FILTERS need a GoogleTest target, "
                        "not ${program}")
  endif()
  list(LENGTH GT_FILTERS filter_count)
  if(filter_count EQUAL 1)
    list(APPEND GT_COMMAND "--gtest_filter=${GT_FILTERS}")
  elseif(filter_count GREATER 1)
    # One process per filter, in the same guest; the first failure ends the run.
    set(runs "")
    foreach(filter IN LISTS GT_FILTERS)
      set(run "'${program}'")
      foreach(arg IN LISTS GT_COMMAND ITEMS "--gtest_filter=${filter}")
        if(arg MATCHES "'")
          message(FATAL_ERROR "add_guest_test(${GT_NAME}): no quote allowed in ${arg}")
        endif()
        string(APPEND run " '${arg}'")
      endforeach()
      list(APPEND runs "${run}")
    endforeach()
    list(JOIN runs " && " script)
    set(program /bin/sh)
    set(GT_COMMAND -c "${script}")
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

# Records the filters a guest test runs <program> with ("*" for none), one
# "<guest test> <filter>" entry each, and, for a program that some guest test
# filters, adds GuestFilters.<program> once. The entries are written out at
# generation time, so guest tests added after this one count too.
function(_guest_test_filters name program filters)
  if(filters)
    set(recorded ${filters})
  else()
    set(recorded "*")
  endif()
  foreach(filter IN LISTS recorded)
    if(filter MATCHES "[ ,>$]")
      message(FATAL_ERROR "add_guest_test(${name}): unexpected character in filter ${filter}")
    endif()
    set_property(TARGET ${program} APPEND PROPERTY WIZARD_GUEST_FILTERS "${name} ${filter}")
  endforeach()
  get_property(checked TARGET ${program} PROPERTY WIZARD_GUEST_FILTERS_CHECKED)
  if(filters AND NOT checked)
    set_property(TARGET ${program} PROPERTY WIZARD_GUEST_FILTERS_CHECKED TRUE)
    set(list_file ${CMAKE_CURRENT_BINARY_DIR}/${program}.guest-filters)
    file(GENERATE OUTPUT ${list_file}
         CONTENT "$<JOIN:$<TARGET_PROPERTY:${program},WIZARD_GUEST_FILTERS>,\n>\n")
    add_test(NAME GuestFilters.${program}
             COMMAND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/check-guest-filters
                     $<TARGET_FILE:${program}> ${list_file})
    set_tests_properties(GuestFilters.${program} PROPERTIES LABELS unit TIMEOUT 60)
  endif()
endfunction()
