# A target's sources compiled by the group, which takes the headers that they share once: a build from nothing is ready
# sooner, one after a change later. Names of their own must differ among them. Behind the target stand sources that
# keep apart. To be called when the target has its libraries.
option(PTZD_GROUPED "Compile sources by the group, where they allow it" OFF)
if(NOT TARGET ptzd_grouped)
  # The compiler takes the sources of a group for headers, and one's names for those around another.
  add_library(ptzd_grouped INTERFACE)
  target_compile_options(ptzd_grouped INTERFACE -Wno-subobject-linkage -Wno-shadow)
endif()
function(ptzd_group target)
  if(PTZD_GROUPED)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    target_link_libraries(${target} PRIVATE ptzd_grouped)
  endif()
endfunction()
