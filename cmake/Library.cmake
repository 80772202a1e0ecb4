# libzord410.so and libzord410.a, from the same objects.
set(objects
  $<TARGET_OBJECTS:zord410_suite>
  $<TARGET_OBJECTS:zord410_zora>
  $<TARGET_OBJECTS:zord410_zordipc>
  $<TARGET_OBJECTS:zord410_zordlpc>
  $<TARGET_OBJECTS:zord410_zordsock>
  $<TARGET_OBJECTS:zord410_zordchcl>)

add_library(zord410 SHARED ${objects})
add_library(zord410_static STATIC ${objects})
set_target_properties(zord410 zord410_static PROPERTIES OUTPUT_NAME zord410)

set(map ${PROJECT_SOURCE_DIR}/zordchcl/zord410.map)
set_target_properties(zord410 PROPERTIES LINK_DEPENDS ${map})
target_link_options(zord410 PRIVATE
  -Wl,--version-script=${map} -Wl,-soname,libzord410.so)
# Clang links the runtime of its sanitizers into programs only.
if(NOT (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize="))
  target_link_options(zord410 PRIVATE -Wl,--no-undefined)
endif()

foreach(library zord410 zord410_static)
  target_link_libraries(${library} PUBLIC Threads::Threads)
  target_include_directories(${library} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
endforeach()
