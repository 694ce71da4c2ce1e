# Veldrift.prm: the host entry over all layers. It exports its two names and nothing else.
file(GLOB VD_ENTRY_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/entry/*.cpp)
if(NOT VD_ENTRY_SOURCES)
  return()
endif()
add_library(Veldrift MODULE ${VD_ENTRY_SOURCES})
# Its own sources are visible; the map and the definition file say what of them leaves the module.
set_target_properties(Veldrift PROPERTIES PREFIX "" SUFFIX ".prm" CXX_VISIBILITY_PRESET default)
target_link_libraries(Veldrift PRIVATE veldrift_ui vd_warnings)
if(WIN32)
  target_sources(Veldrift PRIVATE ${CMAKE_SOURCE_DIR}/cmake/exports.def)
else()
  target_link_options(Veldrift PRIVATE
    -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/exports.map -Wl,--exclude-libs,ALL)
  if(NOT VD_SANITIZE)
    target_link_options(Veldrift PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(Veldrift PROPERTIES LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports.map)
endif()
