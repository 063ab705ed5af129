# kestrin_library(NAME FOLDERS dir... LINK lib...): a static library from every .cpp directly in the
# given folders. A new file needs no edit here.
function(kestrin_library name)
  cmake_parse_arguments(ARG "" "" "FOLDERS;LINK" ${ARGN})
  set(sources)
  foreach(folder ${ARG_FOLDERS})
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${folder}/*.cpp)
    list(FILTER found EXCLUDE REGEX "/main\\.cpp$")
    list(APPEND sources ${found})
  endforeach()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC ${ARG_LINK})
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ARG_LINK})
  endif()
endfunction()

# kestrin_program(NAME FOLDER dir LINK lib...): a program from dir/main.cpp.
function(kestrin_program name)
  cmake_parse_arguments(ARG "" "FOLDER" "LINK" ${ARGN})
  if(EXISTS ${CMAKE_SOURCE_DIR}/src/${ARG_FOLDER}/main.cpp)
    add_executable(${name} ${CMAKE_SOURCE_DIR}/src/${ARG_FOLDER}/main.cpp)
    target_link_libraries(${name} PRIVATE ${ARG_LINK})
  endif()
endfunction()

# kestrin_tests(NAME FOLDERS dir... LINK lib... [LABELS label...] [INSIDE command...]): one test program
# from every .cpp in tests/<dir>. CTest runs it inside the command (a private desktop). Those without
# the label "desktop" are the target headless_tests.
function(kestrin_tests name)
  cmake_parse_arguments(ARG "" "" "FOLDERS;LINK;LABELS;INSIDE" ${ARGN})
  set(sources)
  foreach(folder ${ARG_FOLDERS})
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_compile_definitions(${name} PRIVATE KESTRIN_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
                             KESTRIN_BINARY_DIR="${CMAKE_BINARY_DIR}")
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gtest GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${ARG_INSIDE} $<TARGET_FILE:${name}>)
  set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 600)
  if(NOT TARGET headless_tests)
    add_custom_target(headless_tests)
  endif()
  if(NOT "desktop" IN_LIST ARG_LABELS)
    add_dependencies(headless_tests ${name})
  endif()
endfunction()

# Adds the client's side of a Wayland protocol, NAME-client-protocol.h and its tables, to a target.
function(kestrin_wayland_protocol target file)
  find_program(WAYLAND_SCANNER wayland-scanner REQUIRED)
  get_filename_component(name ${file} NAME_WE)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/wayland)
  file(MAKE_DIRECTORY ${folder})
  set(header ${folder}/${name}-client-protocol.h)
  set(tables ${folder}/${name}-protocol.c)
  add_custom_command(OUTPUT ${header} ${tables} DEPENDS ${file}
    COMMAND ${WAYLAND_SCANNER} client-header ${file} ${header}
    COMMAND ${WAYLAND_SCANNER} private-code ${file} ${tables})
  target_sources(${target} PRIVATE ${header} ${tables})
  # Generated: no warnings about it.
  target_include_directories(${target} SYSTEM PRIVATE ${folder})
endfunction()
