# Everything the build takes from outside. Header-only or static wherever there is a choice: the layer lives
# in somebody else's process and must neither need nor meet a shared library of that process.

find_package(Threads REQUIRED)
find_package(PkgConfig)

# velmoor_check_version(NAME VERSION OLDEST TRIED): refuses what is older than OLDEST, and warns where VERSION does not
# begin as TRIED does.
function(velmoor_check_version name version oldest tried)
  if(version VERSION_LESS oldest)
    message(FATAL_ERROR "${name} ${version} is too old: ${oldest} or newer is needed (see CONTRIBUTING.md)")
  elseif(NOT "${version}." MATCHES "^${tried}[.]")
    message(WARNING "${name} ${version} was never tried; ${tried}.x was")
  endif()
endfunction()

function(velmoor_openxr_version directory result)
  set(version "")
  if(EXISTS ${directory}/openxr/openxr_loader_negotiation.h)
    file(STRINGS ${directory}/openxr/openxr.h line REGEX "define XR_CURRENT_API_VERSION ")
    string(REGEX REPLACE ".*\\(([0-9]+), *([0-9]+), *([0-9]+)\\).*" "\\1.\\2.\\3" version "${line}")
  endif()
  set(${result} "${version}" PARENT_SCOPE)
endfunction()

function(velmoor_httplib_version directory result)
  set(version "")
  if(EXISTS ${directory}/httplib.h)
    file(STRINGS ${directory}/httplib.h line REGEX "define CPPHTTPLIB_VERSION " LIMIT_COUNT 1)
    string(REGEX REPLACE ".*\"([0-9.]+)\".*" "\\1" version "${line}")
  endif()
  set(${result} "${version}" PARENT_SCOPE)
endfunction()

set(VELMOOR_OPENXR_OLDEST 1.1.59)
set(VELMOOR_HTTPLIB_OLDEST 0.41)
set(VELMOOR_OPENXR_INCLUDE_DIR "" CACHE PATH "Directory that holds openxr/openxr.h, ${VELMOOR_OPENXR_OLDEST} or newer")
set(VELMOOR_HTTPLIB_INCLUDE_DIR "" CACHE PATH "Directory that holds the one-header httplib.h, ${VELMOOR_HTTPLIB_OLDEST} or newer")
set(VELMOOR_RE2_SOURCE_DIR "" CACHE PATH "Directory that holds re2/re2.cc of 2022-06-01 or another one without abseil")

# Each of the three is what the builder names, or what is installed and new enough, or is fetched into .deps/.
find_path(installed_openxr NAMES openxr/openxr_loader_negotiation.h NO_CACHE)
velmoor_openxr_version("${installed_openxr}" version)
if(NOT VELMOOR_OPENXR_INCLUDE_DIR AND version VERSION_GREATER_EQUAL VELMOOR_OPENXR_OLDEST)
  set(VELMOOR_OPENXR_INCLUDE_DIR ${installed_openxr})
endif()
find_path(installed_httplib NAMES httplib.h NO_CACHE)
velmoor_httplib_version("${installed_httplib}" version)
if(NOT VELMOOR_HTTPLIB_INCLUDE_DIR AND version VERSION_GREATER_EQUAL VELMOOR_HTTPLIB_OLDEST)
  set(VELMOOR_HTTPLIB_INCLUDE_DIR ${installed_httplib})
endif()
set(deps ${PROJECT_SOURCE_DIR}/.deps)
foreach(row VELMOOR_OPENXR_INCLUDE_DIR=openxr=${deps}/openxr/usr/include
            VELMOOR_HTTPLIB_INCLUDE_DIR=httplib=${deps}/httplib VELMOOR_RE2_SOURCE_DIR=re2=${deps}/re2)
  string(REPLACE "=" ";" row ${row})
  list(POP_FRONT row variable wanted directory)
  if(NOT ${variable})
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/cmake/fetch-dependencies.sh ${deps} ${wanted} RESULT_VARIABLE fetched)
    if(NOT fetched EQUAL 0)
      message(FATAL_ERROR "${wanted} is missing: set -D${variable}=")
    endif()
    set(${variable} ${directory})
  endif()
endforeach()
velmoor_openxr_version(${VELMOOR_OPENXR_INCLUDE_DIR} version)
velmoor_check_version("OpenXR headers" "${version}" ${VELMOOR_OPENXR_OLDEST} 1.1)
velmoor_httplib_version(${VELMOOR_HTTPLIB_INCLUDE_DIR} version)
velmoor_check_version("cpp-httplib" "${version}" ${VELMOOR_HTTPLIB_OLDEST} 0)
if(NOT EXISTS ${VELMOOR_RE2_SOURCE_DIR}/re2/re2.cc)
  message(FATAL_ERROR "The source of re2 (2022-06-01) is missing: set -DVELMOOR_RE2_SOURCE_DIR=")
endif()

add_library(velmoor_openxr_headers INTERFACE)
target_include_directories(velmoor_openxr_headers SYSTEM INTERFACE ${VELMOOR_OPENXR_INCLUDE_DIR})

add_library(velmoor_httplib INTERFACE)
target_include_directories(velmoor_httplib SYSTEM INTERFACE ${VELMOOR_HTTPLIB_INCLUDE_DIR})
target_link_libraries(velmoor_httplib INTERFACE Threads::Threads)

find_package(nlohmann_json 3.11 REQUIRED)
velmoor_check_version("nlohmann-json" ${nlohmann_json_VERSION} 3.11 3)

# Of the graphics interfaces headers alone: nothing of them is linked.
find_path(VELMOOR_VULKAN_INCLUDE_DIR NAMES vulkan/vulkan.h REQUIRED)
find_path(VELMOOR_GL_INCLUDE_DIR NAMES GL/glx.h REQUIRED)
find_path(VELMOOR_EGL_INCLUDE_DIR NAMES EGL/egl.h REQUIRED)
find_path(VELMOOR_X11_INCLUDE_DIR NAMES X11/Xlib.h REQUIRED)

find_package(fmt REQUIRED)
velmoor_check_version("fmt" ${fmt_VERSION} 9 9)

find_path(VELMOOR_STB_INCLUDE_DIR NAMES stb_image_write.h PATH_SUFFIXES stb REQUIRED)
add_library(velmoor_stb INTERFACE)
target_include_directories(velmoor_stb SYSTEM INTERFACE ${VELMOOR_STB_INCLUDE_DIR})

# The archive, and not the shared library, which the host may have in another version.
find_path(VELMOOR_LIBDEFLATE_INCLUDE_DIR NAMES libdeflate.h REQUIRED)
find_library(VELMOOR_LIBDEFLATE NAMES libdeflate.a REQUIRED)
add_library(velmoor_libdeflate INTERFACE)
target_include_directories(velmoor_libdeflate SYSTEM INTERFACE ${VELMOOR_LIBDEFLATE_INCLUDE_DIR})
target_link_libraries(velmoor_libdeflate INTERFACE ${VELMOOR_LIBDEFLATE})

# re2 is compiled here: the thread-local of Debian's libre2.a is not position-independent, so no shared library
# can hold it, and the shared libre2 has another name in each release.
file(GLOB re2_sources ${VELMOOR_RE2_SOURCE_DIR}/re2/*.cc)
if(NOT EXISTS ${VELMOOR_RE2_SOURCE_DIR}/re2/unicode_groups.cc)
  list(APPEND re2_sources ${PROJECT_SOURCE_DIR}/diagnostics/re2_tables.cpp)
endif()
add_library(velmoor_re2 STATIC EXCLUDE_FROM_ALL ${re2_sources}
  ${VELMOOR_RE2_SOURCE_DIR}/util/rune.cc ${VELMOOR_RE2_SOURCE_DIR}/util/strutil.cc)
set_target_properties(velmoor_re2 PROPERTIES CXX_STANDARD 17 POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON CXX_CLANG_TIDY "")
target_include_directories(velmoor_re2 SYSTEM PUBLIC ${VELMOOR_RE2_SOURCE_DIR})
target_link_libraries(velmoor_re2 PUBLIC Threads::Threads)

# Reads the command line of the command. Header-only.
find_package(CLI11 2.1 REQUIRED)

# Reads the test files of the command.
find_package(yaml-cpp 0.7 REQUIRED)

# The real loader, for examples and tests only; the runtime package is enough.
find_library(VELMOOR_OPENXR_LOADER NAMES openxr_loader libopenxr_loader.so.1 REQUIRED)

if(VELMOOR_BUILD_TESTS)
  find_package(GTest REQUIRED)
  # Decodes what the layer encodes.
  find_package(PNG REQUIRED)
  include(GoogleTest)
endif()
if(VELMOOR_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
