# Run by ctest once the programs stand: the suites of PROGRAM are tests, long ones alone and of others some
# together, whose names make that of the test. With the sanitizers a program takes 0.2 s to start and to end, which is
# more than most suites take.
set(qmtSuitesTogether 6)
# The longest begin first: one that is left to the end has a processor to itself.
set(qmtLongSuites "^(ControlServerTest|OneFaultTest|CaptureTest|UserDataTest|ClientTest|History(Store|Kill)Test)$")
set(qmtSuitesAlone
    "^(AlarmBookTest|AlarmDeskTest|CheckFileTest|ControlGroupTimeTest|CostOfRowsTest|DaemonTest|Each/.*|LoopMemoryTest|\
Profiles/.*|Qmtctl|QmtctlAlone|Scenes/.*|TaskIteratorTest)$")

function(qmt_add_suite_test program folder suites)
  list(JOIN suites "+" name)
  list(TRANSFORM suites APPEND "*")
  list(JOIN suites ":" filter)
  string(REGEX REPLACE "\\.(\\+|$)" "\\1" name "${name}")
  add_test(${name} ${program} "--gtest_filter=${filter}")
  # No daemon of a test takes the port of metrics unless its ini file says so.
  set_tests_properties(${name} PROPERTIES WORKING_DIRECTORY ${folder} TIMEOUT 300
                       ENVIRONMENT "QMT_HTTP_LISTEN=")
  if(name MATCHES "${qmtLongSuites}")
    set_tests_properties(${name} PROPERTIES COST 40)
  endif()
endfunction()

function(qmt_add_suites program folder)
  if(NOT EXISTS ${program})
    add_test(${program}.NotBuilt false)
    return()
  endif()
  execute_process(COMMAND ${program} --gtest_list_tests WORKING_DIRECTORY ${folder}
                  OUTPUT_VARIABLE listed RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${program} can't list its tests: ${failed}")
  endif()
  string(REGEX MATCHALL "(^|\n)[^ \n]+\\." suites "${listed}")
  set(together)
  foreach(suite IN LISTS suites)
    string(STRIP "${suite}" suite)
    string(REGEX REPLACE "\\.$" "" name "${suite}")
    if(name MATCHES "${qmtLongSuites}" OR name MATCHES "${qmtSuitesAlone}")
      qmt_add_suite_test(${program} ${folder} ${suite})
      continue()
    endif()
    list(APPEND together ${suite})
    list(LENGTH together count)
    if(count EQUAL qmtSuitesTogether)
      qmt_add_suite_test(${program} ${folder} "${together}")
      set(together)
    endif()
  endforeach()
  if(together)
    qmt_add_suite_test(${program} ${folder} "${together}")
  endif()
endfunction()
