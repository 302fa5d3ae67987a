# Everything the build takes from outside. Header-only or static wherever there is a choice: the layer lives
# in somebody else's process and must neither need nor meet a shared library of that process.

find_package(Threads REQUIRED)
find_package(PkgConfig)

# What Debian's packages can't serve comes from .deps/ (see fetch-dependencies.sh).
set(VELMOOR_OPENXR_INCLUDE_DIR "" CACHE PATH "Directory that holds openxr/openxr.h, 1.1.59 or newer")
set(VELMOOR_HTTPLIB_INCLUDE_DIR "" CACHE PATH "Directory that holds the one-header httplib.h, 0.41 or newer")
set(VELMOOR_RE2_SOURCE_DIR "" CACHE PATH "Directory that holds re2/re2.cc of 2022-06-01 or another one without abseil")
if(NOT VELMOOR_OPENXR_INCLUDE_DIR OR NOT VELMOOR_HTTPLIB_INCLUDE_DIR OR NOT VELMOOR_RE2_SOURCE_DIR)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/cmake/fetch-dependencies.sh RESULT_VARIABLE fetched)
  if(fetched EQUAL 0 AND NOT VELMOOR_OPENXR_INCLUDE_DIR)
    set(VELMOOR_OPENXR_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/.deps/openxr/usr/include)
  endif()
  if(fetched EQUAL 0 AND NOT VELMOOR_HTTPLIB_INCLUDE_DIR)
    set(VELMOOR_HTTPLIB_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/.deps/httplib)
  endif()
  if(fetched EQUAL 0 AND NOT VELMOOR_RE2_SOURCE_DIR)
    set(VELMOOR_RE2_SOURCE_DIR ${PROJECT_SOURCE_DIR}/.deps/re2)
  endif()
endif()
if(NOT EXISTS ${VELMOOR_OPENXR_INCLUDE_DIR}/openxr/openxr_loader_negotiation.h)
  message(FATAL_ERROR "OpenXR headers 1.1.59 or newer are missing: set -DVELMOOR_OPENXR_INCLUDE_DIR=")
endif()
if(NOT EXISTS ${VELMOOR_HTTPLIB_INCLUDE_DIR}/httplib.h)
  message(FATAL_ERROR "cpp-httplib 0.41 or newer is missing: set -DVELMOOR_HTTPLIB_INCLUDE_DIR=")
endif()
if(NOT EXISTS ${VELMOOR_RE2_SOURCE_DIR}/re2/re2.cc)
  message(FATAL_ERROR "The source of re2 (2022-06-01) is missing: set -DVELMOOR_RE2_SOURCE_DIR=")
endif()

add_library(velmoor_openxr_headers INTERFACE)
target_include_directories(velmoor_openxr_headers SYSTEM INTERFACE ${VELMOOR_OPENXR_INCLUDE_DIR})

add_library(velmoor_httplib INTERFACE)
target_include_directories(velmoor_httplib SYSTEM INTERFACE ${VELMOOR_HTTPLIB_INCLUDE_DIR})
target_link_libraries(velmoor_httplib INTERFACE Threads::Threads)

find_package(nlohmann_json 3.11 REQUIRED)

# Of the graphics interfaces headers alone: nothing of them is linked.
find_path(VELMOOR_VULKAN_INCLUDE_DIR NAMES vulkan/vulkan.h REQUIRED)
find_path(VELMOOR_GL_INCLUDE_DIR NAMES GL/glx.h REQUIRED)
find_path(VELMOOR_EGL_INCLUDE_DIR NAMES EGL/egl.h REQUIRED)
find_path(VELMOOR_X11_INCLUDE_DIR NAMES X11/Xlib.h REQUIRED)

find_package(fmt 9 REQUIRED)

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
