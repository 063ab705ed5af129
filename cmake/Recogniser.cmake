# The speech engine and its models lie in the user's cache folder (fetched once, checked against known
# sums). The build folder gets links in the layout of an installation: lib/ and share/kestrin/models/.
execute_process(COMMAND ${CMAKE_SOURCE_DIR}/scripts/fetch-recogniser
  OUTPUT_VARIABLE KESTRIN_RECOGNISER_FILES OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "The speech engine could not be fetched. "
    "With -DKESTRIN_RECOGNISER=OFF everything else is built; the companion then has no recogniser.")
endif()
# For what is installed.
set(KESTRIN_RECOGNISER_FILES ${KESTRIN_RECOGNISER_FILES} PARENT_SCOPE)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/lib ${CMAKE_BINARY_DIR}/share/kestrin)
file(CREATE_LINK ${KESTRIN_RECOGNISER_FILES}/lib/libonnxruntime.so.1
  ${CMAKE_BINARY_DIR}/lib/libonnxruntime.so.1 SYMBOLIC)
file(CREATE_LINK ${KESTRIN_RECOGNISER_FILES}/models ${CMAKE_BINARY_DIR}/share/kestrin/models SYMBOLIC)

add_library(onnxruntime SHARED IMPORTED)
set_target_properties(onnxruntime PROPERTIES
  IMPORTED_LOCATION ${CMAKE_BINARY_DIR}/lib/libonnxruntime.so.1
  IMPORTED_SONAME libonnxruntime.so.1
  INTERFACE_INCLUDE_DIRECTORIES ${KESTRIN_RECOGNISER_FILES}/include)

kestrin_library(kestrin_recogniser FOLDERS companion/recogniser/onnx LINK kestrin_companion onnxruntime)
