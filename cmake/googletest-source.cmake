# GoogleTest for cross builds: Debian packages no MinGW build of it, but the googletest package
# ships its sources, which are built here with the cross compiler.
set(VELMORA_GTEST_SOURCE_DIR /usr/src/googletest/googletest
    CACHE PATH "GoogleTest's source folder (its googletest/ subfolder)")
if(NOT EXISTS ${VELMORA_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest sources in ${VELMORA_GTEST_SOURCE_DIR}: install the "
                      "googletest package, or set VELMORA_GTEST_SOURCE_DIR, or VELMORA_TESTS=OFF")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
add_subdirectory(${VELMORA_GTEST_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
# Our warning flags are not GoogleTest's business.
set_target_properties(gtest gtest_main PROPERTIES COMPILE_OPTIONS "")
# Newer GoogleTest releases define the GTest:: names themselves.
foreach(lib gtest gtest_main)
  if(NOT TARGET GTest::${lib})
    add_library(GTest::${lib} ALIAS ${lib})
  endif()
endforeach()
