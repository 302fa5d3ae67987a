# How a target of this project is made: one function for each kind, so that warnings, visibility and
# sanitizers are told once.

add_library(velmoor_build_flags INTERFACE)
target_include_directories(velmoor_build_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(velmoor_build_flags INTERFACE
  -Wall -Wextra $<$<COMPILE_LANGUAGE:CXX>:-Wconversion> -Wshadow $<$<BOOL:${VELMOOR_WERROR}>:-Werror>)

# Sanitizers are the one thing that every object of the build has to share.
if(VELMOOR_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  # Under its sanitizers g++ takes members of std::regex for uninitialised, in a header that we only include.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_link_options(-fsanitize=address,undefined)
elseif(VELMOOR_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(VELMOOR_SANITIZE)
  message(FATAL_ERROR "VELMOOR_SANITIZE is '${VELMOOR_SANITIZE}'; it takes 'address', 'thread' or nothing")
endif()
# So is the counting of branches by which a fuzzer finds its way: everything below a fuzz target guides it.
if(VELMOOR_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzz targets need libFuzzer: configure with -DCMAKE_CXX_COMPILER=clang++")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# velmoor_library(NAME SOURCES ... [DEPENDS ...]): a static library that can go into the layer. What it
# DEPENDS on is also visible to whoever links it.
function(velmoor_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  add_library(${name} STATIC ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE velmoor_build_flags)
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
endfunction()

# velmoor_executable(NAME SOURCES ... [DEPENDS ...])
function(velmoor_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE velmoor_build_flags ${arg_DEPENDS})
endfunction()

# velmoor_test(NAME SOURCES ... [DEPENDS ...] [RESOURCE_LOCK lock] [TIMEOUT seconds]): a GoogleTest program,
# each case of which is one ctest test. Tests that use port 8720 give RESOURCE_LOCK port_8720.
function(velmoor_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "RESOURCE_LOCK;TIMEOUT" "SOURCES;DEPENDS")
  velmoor_executable(${name} SOURCES ${arg_SOURCES} DEPENDS ${arg_DEPENDS} GTest::gmock_main)
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  set(properties TIMEOUT ${arg_TIMEOUT})
  if(arg_RESOURCE_LOCK)
    list(APPEND properties RESOURCE_LOCK ${arg_RESOURCE_LOCK})
  endif()
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
