# ZVQRN.dll: its exports, its version resource, and what is made of it: the import libraries of two
# compiler families and the debug symbols in a file of their own.

export_list_for_machine(export_list ${CMAKE_CURRENT_SOURCE_DIR}/src/service/ZVQRN.def)
target_sources(ZVQRN PRIVATE ${export_list})
set_target_properties(ZVQRN PROPERTIES PREFIX "" IMPORT_PREFIX lib)
target_link_options(ZVQRN PRIVATE -static -Wl,--dynamicbase,--nxcompat,--no-insert-timestamp)

add_version_resource(ZVQRN "${PROJECT_DESCRIPTION}")

# In 32 bits C callers use the decorated names (_QRNStartService@24), the DLL exports the plain ones.
# The import library that the linker writes has the plain names on both sides and serves no C caller,
# so it is replaced by one made of the callers' list; -k cuts the decoration off the imported names.
file(STRINGS ${export_list} exports REGEX "^ ")
list(TRANSFORM exports REPLACE "^.* = " "  ")
list(JOIN exports "\n" EXPORTS)
if(ZVQRN_MACHINE STREQUAL "x64")
  set(LLVM_MACHINE i386:x86-64)
else()
  set(LLVM_MACHINE i386)
endif()
set(CALLERS_LIST ${CMAKE_CURRENT_BINARY_DIR}/callers/ZVQRN.def)
configure_file(cmake/callers.def.in ${CALLERS_LIST} @ONLY)
# The names of files get into it: they are given without their folders.
add_custom_command(TARGET ZVQRN POST_BUILD VERBATIM WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
  COMMAND ${CMAKE_DLLTOOL} --deterministic-libraries --temp-prefix ZVQRN
    -k -d ${CALLERS_LIST} -l $<TARGET_LINKER_FILE_NAME:ZVQRN>)

# The same for the linkers of Microsoft and LLVM.
find_program(ZVQRN_LLVM_DLLTOOL llvm-dlltool REQUIRED DOC "Makes ZVQRN.lib (package llvm)")
set(MSVC_LIBRARY ${CMAKE_CURRENT_BINARY_DIR}/ZVQRN.lib)
add_custom_command(TARGET ZVQRN POST_BUILD VERBATIM BYPRODUCTS ${MSVC_LIBRARY}
  COMMAND ${ZVQRN_LLVM_DLLTOOL} -m ${LLVM_MACHINE} -k -d ${CALLERS_LIST} -l ${MSVC_LIBRARY})

# The released DLL is built with debug information, which then moves into ZVQRN.debug: gdb finds it
# beside the DLL.  -g changes no code.  Without the variable these programs write the time of day.
target_compile_options(zvqrn_library_settings INTERFACE $<$<CONFIG:Release>:-g>)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(DEBUG_SYMBOLS ${CMAKE_CURRENT_BINARY_DIR}/ZVQRN.debug)
  set(without_time ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
  add_custom_command(TARGET ZVQRN POST_BUILD VERBATIM BYPRODUCTS ${DEBUG_SYMBOLS}
    COMMAND ${without_time} ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:ZVQRN> ${DEBUG_SYMBOLS}
    COMMAND ${without_time} ${CMAKE_STRIP} $<TARGET_FILE:ZVQRN>
    COMMAND ${without_time} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${DEBUG_SYMBOLS}
      $<TARGET_FILE:ZVQRN>)
endif()
