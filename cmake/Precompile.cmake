# Every program and library reads the library headers from one precompiled file; tests, which need
# GoogleTest too, from another one.

set(headers <algorithm> <array> <charconv> <chrono> <cstdint> <cstring> <deque> <filesystem>
    <fstream> <functional> <map> <memory> <optional> <set> <span> <sstream> <string>
    <string_view> <unordered_map> <vector> <nlohmann/json.hpp>)

# An object library that makes the precompiled file.
function(add_precompiled name)
  file(WRITE ${CMAKE_BINARY_DIR}/${name}.cpp "")
  add_library(${name} OBJECT ${CMAKE_BINARY_DIR}/${name}.cpp)
  target_link_libraries(${name} PRIVATE qmt_options)
  target_precompile_headers(${name} PRIVATE ${ARGN})
endfunction()

# Gives every target of a folder, and of those below, one of the two precompiled files.
function(precompile_folder folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    get_target_property(libraries ${target} LINK_LIBRARIES)
    get_target_property(disabled ${target} DISABLE_PRECOMPILE_HEADERS)
    if(disabled OR NOT type MATCHES "^(STATIC_LIBRARY|EXECUTABLE)$")
      continue()
    elseif("GTest::gtest_main" IN_LIST libraries)
      target_precompile_headers(${target} REUSE_FROM qmt_test_headers)
    else()
      target_precompile_headers(${target} REUSE_FROM qmt_headers)
    endif()
  endforeach()
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(below ${folders})
    precompile_folder(${below})
  endforeach()
endfunction()

add_precompiled(qmt_headers ${headers})
if(QMT_TESTS)
  find_package(GTest REQUIRED)
  add_precompiled(qmt_test_headers ${headers} <gmock/gmock.h> <gtest/gtest.h>)
  target_link_libraries(qmt_test_headers PRIVATE GTest::gmock)
endif()
precompile_folder(${CMAKE_SOURCE_DIR})
