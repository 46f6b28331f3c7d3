# One static library per subsystem folder. Sources are taken from the folder
# itself so a new file needs no edit here; dependencies are declared so the
# linker keeps layers apart (a module can only use what it names).
#
#   quorvel_module(sync DEPS base platform)
function(quorvel_module name)
  cmake_parse_arguments(M "" "" "DEPS;PRIVATE_DEPS" ${ARGN})
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT _src)
    return()  # a subsystem not begun yet
  endif()
  foreach(d ${M_DEPS})
    if(NOT TARGET quorvel_${d})
      message(WARNING "quorvel_${name} left out: it needs quorvel_${d}, which has no sources yet")
      return()
    endif()
  endforeach()
  add_library(quorvel_${name} STATIC ${_src})
  target_include_directories(quorvel_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  set(_deps)
  foreach(d ${M_DEPS})
    list(APPEND _deps quorvel_${d})
  endforeach()
  target_link_libraries(quorvel_${name} PUBLIC ${_deps} Threads::Threads PRIVATE ${M_PRIVATE_DEPS})
endfunction()

# One test executable per subsystem, from tests/<name>/*.cpp.
function(quorvel_test name)
  cmake_parse_arguments(T "" "" "DEPS" ${ARGN})
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT _src)
    return()
  endif()
  add_executable(test_${name} ${_src})
  set(_deps)
  foreach(d ${T_DEPS})
    list(APPEND _deps quorvel_${d})
  endforeach()
  target_link_libraries(test_${name} PRIVATE ${_deps} quorvel_testsupport)
  add_test(NAME ${name} COMMAND test_${name})
  # Files we write must not follow the user's locale: prove it under French.
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "LC_ALL=fr_FR.UTF-8;QUORVEL_FIXTURES=${CMAKE_BINARY_DIR}/fixtures;QUORVEL_BIN=${CMAKE_BINARY_DIR}")
endfunction()
