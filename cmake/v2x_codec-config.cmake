# CMake package of the installed codec library.
include(${CMAKE_CURRENT_LIST_DIR}/v2x_codec-targets.cmake)

# The libraries contain C++ code that does not need the C++ runtime. C programs link them with the C compiler.
foreach(target v2x_codec::app_stack_codec v2x_codec::v2xmsgset)
  get_target_property(configurations ${target} IMPORTED_CONFIGURATIONS)
  foreach(configuration IN LISTS configurations)
    set_property(TARGET ${target} PROPERTY IMPORTED_LINK_INTERFACE_LANGUAGES_${configuration} C)
  endforeach()
endforeach()
