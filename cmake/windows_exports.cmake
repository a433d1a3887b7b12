# An export list's lines are "plain name = name that the compiler gives the function"; the latter
# carries the calling convention of 32 bits (QRNStartService@24).  In 64 bits there is one convention
# and one name.  Sets `result` to the list for the linker of this machine.
function(export_list_for_machine result list)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  if(ZVQRN_MACHINE STREQUAL "x64")
    get_filename_component(name ${list} NAME)
    file(READ ${list} lines)
    string(REGEX REPLACE " = [^\n]*" "" lines "${lines}")
    set(list ${CMAKE_CURRENT_BINARY_DIR}/exports/${name})
    file(CONFIGURE OUTPUT ${list} CONTENT "${lines}")
  endif()
  set(${result} ${list} PARENT_SCOPE)
endfunction()
