# Build conventions shared by every folder.
#
# qmx_library(<name> [DEPS <targets>...] [LIBS <system libs>...])
#   Builds the static library qmx_<name> from every .cpp file of the calling
#   folder except *_test.cpp and *_main.cpp, so that adding a file needs no
#   CMake edit.  The project root is the include root ("diag/trace.h").
#   Every *_test.cpp of the folder goes into the test program <name>_tests,
#   registered with CTest and linked with the test support (testing/).

set(QMX_ROOT ${CMAKE_CURRENT_LIST_DIR}/..)

add_library(qmx_warnings INTERFACE)
target_compile_options(qmx_warnings INTERFACE -Wall -Wextra
  $<$<BOOL:${QMX_WERROR}>:-Werror>)
if(QMX_SANITIZE)
  target_compile_options(qmx_warnings INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(qmx_warnings INTERFACE -fsanitize=address,undefined)
endif()

function(qmx_library name)
  cmake_parse_arguments(Q "" "" "DEPS;LIBS" ${ARGN})
  file(GLOB _all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  set(_src)
  set(_tests)
  foreach(f IN LISTS _all)
    if(f MATCHES "_test\\.cpp$")
      list(APPEND _tests ${f})
    elseif(NOT f MATCHES "_main\\.cpp$")
      list(APPEND _src ${f})
    endif()
  endforeach()
  if(_src)
    add_library(qmx_${name} STATIC ${_src})
    target_include_directories(qmx_${name} PUBLIC ${QMX_ROOT} ${CMAKE_BINARY_DIR}/generated)
    target_link_libraries(qmx_${name} PUBLIC ${Q_DEPS} ${Q_LIBS} Threads::Threads
      PRIVATE qmx_warnings)
  else()
    add_library(qmx_${name} INTERFACE)
    target_include_directories(qmx_${name} INTERFACE ${QMX_ROOT} ${CMAKE_BINARY_DIR}/generated)
    target_link_libraries(qmx_${name} INTERFACE ${Q_DEPS} ${Q_LIBS} Threads::Threads)
  endif()
  if(_tests)
    add_executable(${name}_tests ${_tests})
    target_link_libraries(${name}_tests PRIVATE qmx_${name} qmx_testing GTest::gmock_main
      qmx_warnings)
    gtest_discover_tests(${name}_tests DISCOVERY_MODE PRE_TEST
      PROPERTIES LABELS "unit" ENVIRONMENT "QMX_BUILD_DIR=${CMAKE_BINARY_DIR}")
  endif()
endfunction()
