# One static library per source folder, with the folder's *_test.cc files gathered into one
# test program. New files are picked up at the next build (CONFIGURE_DEPENDS), so adding a unit
# needs no edit here.
#
#   ty_module(NAME vb DEPS ...)  ->  library ty_vb from src/vb/*.cpp,
#                                    test program vb_tests from src/vb/*_test.cc
function(ty_module)
  cmake_parse_arguments(M "" "NAME" "DEPS" ${ARGN})
  set(dir ${PROJECT_SOURCE_DIR}/src/${M_NAME})
  file(GLOB srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  file(GLOB tests CONFIGURE_DEPENDS ${dir}/*_test.cc)
  if(srcs)
    add_library(ty_${M_NAME} STATIC ${srcs})
    target_include_directories(ty_${M_NAME} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(ty_${M_NAME} PUBLIC ${M_DEPS})
  else()
    add_library(ty_${M_NAME} INTERFACE)
    target_include_directories(ty_${M_NAME} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(ty_${M_NAME} INTERFACE ${M_DEPS})
  endif()
  if(TY_BUILD_TESTS AND tests)
    add_executable(${M_NAME}_tests ${tests})
    target_link_libraries(${M_NAME}_tests PRIVATE ty_${M_NAME} ty_testsupport GTest::gtest GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${M_NAME}_tests DISCOVERY_TIMEOUT 60
                         PROPERTIES ENVIRONMENT "TY_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
  endif()
endfunction()
