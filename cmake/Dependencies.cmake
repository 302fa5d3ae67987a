# Everything the build takes from outside. Header-only or static wherever there is a choice: the layer lives
# in somebody else's process and must neither need nor meet a shared library of that process.

find_package(Threads REQUIRED)
find_package(PkgConfig)

# The two headers that Debian 12 ships too old come from .deps/ (see fetch-dependencies.sh).
set(VELMOOR_OPENXR_INCLUDE_DIR "" CACHE PATH "Directory that holds openxr/openxr.h, 1.1.59 or newer")
set(VELMOOR_HTTPLIB_INCLUDE_DIR "" CACHE PATH "Directory that holds the one-header httplib.h, 0.41 or newer")
if(NOT VELMOOR_OPENXR_INCLUDE_DIR OR NOT VELMOOR_HTTPLIB_INCLUDE_DIR)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/cmake/fetch-dependencies.sh RESULT_VARIABLE fetched)
  if(fetched EQUAL 0 AND NOT VELMOOR_OPENXR_INCLUDE_DIR)
    set(VELMOOR_OPENXR_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/.deps/openxr/usr/include)
  endif()
  if(fetched EQUAL 0 AND NOT VELMOOR_HTTPLIB_INCLUDE_DIR)
    set(VELMOOR_HTTPLIB_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/.deps/httplib)
  endif()
endif()
if(NOT EXISTS ${VELMOOR_OPENXR_INCLUDE_DIR}/openxr/openxr_loader_negotiation.h)
  message(FATAL_ERROR "OpenXR headers 1.1.59 or newer are missing: set -DVELMOOR_OPENXR_INCLUDE_DIR=")
endif()
if(NOT EXISTS ${VELMOOR_HTTPLIB_INCLUDE_DIR}/httplib.h)
  message(FATAL_ERROR "cpp-httplib 0.41 or newer is missing: set -DVELMOOR_HTTPLIB_INCLUDE_DIR=")
endif()

add_library(velmoor_openxr_headers INTERFACE)
target_include_directories(velmoor_openxr_headers SYSTEM INTERFACE ${VELMOOR_OPENXR_INCLUDE_DIR})

add_library(velmoor_httplib INTERFACE)
target_include_directories(velmoor_httplib SYSTEM INTERFACE ${VELMOOR_HTTPLIB_INCLUDE_DIR})
target_link_libraries(velmoor_httplib INTERFACE Threads::Threads)

find_package(nlohmann_json 3.11 REQUIRED)

find_package(fmt 9 REQUIRED)

# re2 from its archive. Versions since 2023 are built on abseil, whose CMake package then tells what to link.
find_library(VELMOOR_RE2_ARCHIVE NAMES libre2.a REQUIRED)
find_path(VELMOOR_RE2_INCLUDE_DIR NAMES re2/re2.h REQUIRED)
add_library(velmoor_re2 INTERFACE)
target_include_directories(velmoor_re2 SYSTEM INTERFACE ${VELMOOR_RE2_INCLUDE_DIR})
target_link_libraries(velmoor_re2 INTERFACE ${VELMOOR_RE2_ARCHIVE} Threads::Threads)

# The real loader, for examples and tests only; the runtime package is enough.
find_library(VELMOOR_OPENXR_LOADER NAMES openxr_loader libopenxr_loader.so.1 REQUIRED)

if(VELMOOR_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(VELMOOR_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
