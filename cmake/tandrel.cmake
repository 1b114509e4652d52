# One object library per subsystem folder under src/, all of which together make
# the static library tandrel_core. Each folder's *_test.cpp files make one test
# program that links the folder's objects and those of the folders it builds on.
#
#   tandrel_subsystem(NAME sound DIRS sound sound/device DEPS foundation)

set(TANDREL_SRC "${CMAKE_SOURCE_DIR}/src")

# The suites that start a JACK server of their own. Two of them at once on a
# two-core machine starve each other's real-time threads and lose frames, so
# CTest runs them one at a time under a lock, beside the rest of the suite.
set(TANDREL_JACK_SUITES "JackDevices.*:Engine.*:TransportJack.*:UserPathTest.*")

# gtest_discover_tests for `target`, its JACK suites under the "jack" lock.
function(tandrel_discover_tests target prefix environment)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 TEST_PREFIX "${prefix}"
    TEST_FILTER "-${TANDREL_JACK_SUITES}"
    PROPERTIES ENVIRONMENT "${environment}" TIMEOUT 120)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 TEST_PREFIX "${prefix}"
    TEST_FILTER "${TANDREL_JACK_SUITES}"
    PROPERTIES ENVIRONMENT "${environment}" TIMEOUT 120 RESOURCE_LOCK jack)
endfunction()

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
    tandrel_discover_tests(${test_target} "${S_NAME}." "TANDREL_TEST=1")
  endif()
endfunction()
