# Run by ctest once the programs stand: each suite of PROGRAM is a test. With the sanitizers a program
# takes 0.2 s to start and to end, which is more than most tests take.
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
  foreach(suite IN LISTS suites)
    string(STRIP "${suite}" suite)
    string(REGEX REPLACE "\\.$" "" name "${suite}")
    add_test(${name} ${program} "--gtest_filter=${suite}*")
    # No daemon of a test takes the port of metrics unless its ini file says so.
    set_tests_properties(${name} PROPERTIES WORKING_DIRECTORY ${folder} TIMEOUT 300
                         ENVIRONMENT "QMT_HTTP_LISTEN=")
    # The longest begin first: one that is left to the end has a processor to itself.
    if(name MATCHES "^(ControlServerTest|OneFaultTest|CaptureTest|UserDataTest|ClientTest|History(Store|Kill)Test)$")
      set_tests_properties(${name} PROPERTIES COST 40)
    endif()
  endforeach()
endfunction()
