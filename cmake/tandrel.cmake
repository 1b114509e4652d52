# One object library per subsystem folder under src/, all of which together make
# the static library tandrel_core. Each folder's *_test.cpp files make one test
# program that links the folder's objects and those of the folders it builds on.
#
#   tandrel_subsystem(NAME sound DIRS sound sound/device DEPS foundation)

set(TANDREL_SRC "${CMAKE_SOURCE_DIR}/src")

function(tandrel_subsystem)
  cmake_parse_arguments(S "" "NAME" "DIRS;DEPS;LIBS;TEST_LIBS" ${ARGN})
  set(sources "")
  set(tests "")
  foreach(dir IN LISTS S_DIRS)
    file(GLOB found CONFIGURE_DEPENDS "${TANDREL_SRC}/${dir}/*.cpp")
    foreach(f IN LISTS found)
      if(f MATCHES "_test\\.cpp$")
        list(APPEND tests "${f}")
      else()
        list(APPEND sources "${f}")
      endif()
    endforeach()
  endforeach()

  set(target tandrel_${S_NAME})
  if(NOT sources)
    # A folder with nothing in it yet still gives a target others can name.
    set(sources "${CMAKE_BINARY_DIR}/empty_${S_NAME}.cpp")
    file(WRITE "${sources}" "// no sources yet\n")
  endif()
  add_library(${target} OBJECT ${sources})
  target_include_directories(${target} PUBLIC "${TANDREL_SRC}")
  target_compile_definitions(${target} PUBLIC TANDREL_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${target} PUBLIC Threads::Threads ${S_LIBS})

  # Every subsystem below this one, in link order.
  set(closure ${S_NAME})
  foreach(dep IN LISTS S_DEPS)
    list(APPEND closure ${TANDREL_CLOSURE_${dep}})
  endforeach()
  list(REMOVE_DUPLICATES closure)
  set(TANDREL_CLOSURE_${S_NAME} ${closure} CACHE INTERNAL "")
  foreach(dep IN LISTS S_DEPS)
    target_link_libraries(${target} PUBLIC tandrel_${dep})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY TANDREL_SUBSYSTEMS ${S_NAME})

  if(TANDREL_BUILD_TESTS AND tests)
    set(test_target tandrel_${S_NAME}_tests)
    add_executable(${test_target} ${tests})
    set(objs "")
    foreach(sub IN LISTS closure)
      if(NOT sub STREQUAL S_NAME)  # linked directly below, which brings its objects
        list(APPEND objs $<TARGET_OBJECTS:tandrel_${sub}>)
      endif()
    endforeach()
    target_sources(${test_target} PRIVATE ${objs})
    target_link_libraries(${test_target} PRIVATE tandrel_${S_NAME} ${S_TEST_LIBS} GTest::gmock GTest::gtest_main)
    target_compile_definitions(${test_target} PRIVATE
      TANDREL_TESTDATA_DIR="${TANDREL_TESTDATA_DIR}"
      TANDREL_BINARY_DIR="${CMAKE_BINARY_DIR}")
    gtest_discover_tests(${test_target} DISCOVERY_TIMEOUT 60 TEST_PREFIX "${S_NAME}."
      PROPERTIES ENVIRONMENT "TANDREL_TEST=1" TIMEOUT 120)
  endif()
endfunction()
