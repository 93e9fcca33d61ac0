# SPDX-License-Identifier: GPL-3.0-or-later
# velomar_add_layer(<name> [DEPENDS <layer>...] [LIBS <target>...])
#
# Defines the static library velomar_<name> from every source under
# src/<name>/. Headers are included as "<layer>/<file>.h" from src/.
# A layer names the layers below it that it uses; nothing else is visible.
function(velomar_add_layer name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;LIBS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  add_library(velomar_${name} STATIC ${sources})
  target_include_directories(velomar_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  foreach(dep IN LISTS ARG_DEPENDS)
    target_link_libraries(velomar_${name} PUBLIC velomar_${dep})
  endforeach()
  if(ARG_LIBS)
    target_link_libraries(velomar_${name} PUBLIC ${ARG_LIBS})
  endif()
endfunction()

# velomar_add_test_suite(<layer> [LIBS <target>...])
#
# One GoogleTest executable per layer, from tests/<layer>/*.cpp, with each
# case registered in CTest.
function(velomar_add_test_suite layer)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  add_executable(${layer}_tests ${sources})
  target_include_directories(${layer}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${layer}_tests PRIVATE velomar_${layer} velomar_testing ${ARG_LIBS}
                        GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${layer}_tests DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "VELOMAR_TEST_TMP=${CMAKE_CURRENT_BINARY_DIR}/tmp")
endfunction()
