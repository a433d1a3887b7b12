# How everything is compiled: warnings are errors.  zvqrn_common_settings is for every target,
# zvqrn_library_settings adds what the library's own code keeps to: no exceptions, no RTTI, hidden
# symbols, no hidden locks around static objects.

add_library(zvqrn_common_settings INTERFACE)
# Nothing in here links to the DLL: the library defines its functions, the tools load them.
target_compile_definitions(zvqrn_common_settings INTERFACE QRN_NO_IMPORT)
# No folder of the machine that builds gets into debug information.
target_compile_options(zvqrn_common_settings INTERFACE
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=.)
target_compile_options(zvqrn_common_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2
  -Wundef -Wnull-dereference -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<CXX_COMPILER_ID:GNU>:-Wcast-align -Wduplicated-cond -Wlogical-op>)

if(ZVQRN_SANITIZE)
  set(sanitize -fsanitize=${ZVQRN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_compile_options(zvqrn_common_settings INTERFACE ${sanitize})
  target_link_options(zvqrn_common_settings INTERFACE ${sanitize})
endif()

add_library(zvqrn_library_settings INTERFACE)
target_link_libraries(zvqrn_library_settings INTERFACE zvqrn_common_settings)
target_compile_options(zvqrn_library_settings INTERFACE
  -fvisibility=hidden
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics
    -fvisibility-inlines-hidden>)
target_link_options(zvqrn_library_settings INTERFACE $<$<NOT:$<PLATFORM_ID:Windows>>:-Wl,--as-needed>)
