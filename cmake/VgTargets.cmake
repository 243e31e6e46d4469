# vg_layer(NAME DEPS ...): one static library per folder of src/, built from
# every .cpp in it. Headers are included as "layer/file.h" from src/.
function(vg_layer name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(sources)
    add_library(vg_${name} STATIC ${sources})
    target_include_directories(vg_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vg_${name} PUBLIC ${ARG_DEPS})
  else()
    add_library(vg_${name} INTERFACE)
    target_include_directories(vg_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vg_${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# vg_layer_tests(LAYER DEPS ...): one GoogleTest executable per test folder,
# every test labelled with the layer's name.
function(vg_layer_tests layer)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(vg_${layer}_tests ${sources})
  target_link_libraries(vg_${layer}_tests PRIVATE vg_${layer} vg_testsupport ${ARG_DEPS}
                        GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(vg_${layer}_tests
    PROPERTIES LABELS ${layer}
    DISCOVERY_TIMEOUT 60)
endfunction()
