# Each folder is one library whose headers are included as "folder/File.h". The
# include root that a library publishes holds nothing but a link to its own
# folder, so a file can reach another library's headers only when its target links
# that library: the build itself enforces the layering in docs/ARCHITECTURE.md.
function(qmload_layer target folder)
  set(root ${CMAKE_BINARY_DIR}/include/${folder})
  if(NOT EXISTS ${root}/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  endif()
  get_target_property(kind ${target} TYPE)
  if(kind STREQUAL "INTERFACE_LIBRARY")
    target_include_directories(${target} INTERFACE ${root})
  else()
    target_include_directories(${target} PUBLIC ${root})
  endif()
endfunction()
