# Other projects call find_package(v2x_codec) and link v2x_codec::app_stack_codec, or use `pkg-config v2x_codec`.
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/v2x_codec)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/v2x_codec)
set(codec_source ${CMAKE_SOURCE_DIR}/src/app_main/app_stack/app_stack_GB/app_stack_codec)
get_target_property(msgset_folder v2xmsgset BINARY_DIR)

install(TARGETS app_stack_codec v2xmsgset v2x_interfaces EXPORT v2x_codec
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT codec
  INCLUDES DESTINATION ${headers} ${headers}/msgset)
install(EXPORT v2x_codec NAMESPACE v2x_codec:: FILE v2x_codec-targets.cmake DESTINATION ${package} COMPONENT codec)
install(FILES ${codec_source}/v2xapp_upercodec.h ${codec_source}/v2xapp_commoncodec.h ${codec_source}/v2xapp_gbspat.h
  ${codec_source}/v2xapp_log.h DESTINATION ${headers} COMPONENT codec)
install(FILES ${CMAKE_SOURCE_DIR}/src/include/v2x/v2xmsgset.h DESTINATION ${headers}/v2x COMPONENT codec)
install(DIRECTORY ${msgset_folder}/generated/ DESTINATION ${headers}/msgset COMPONENT codec
  FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_SOURCE_DIR}/examples/decode_spat.c ${CMAKE_SOURCE_DIR}/examples/build_spat.c
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libv2x-codec-dev/examples COMPONENT codec)

write_basic_package_version_file(${install_folder}/v2x_codec-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/v2x_codec-config.cmake ${install_folder}/v2x_codec-config-version.cmake
  DESTINATION ${package} COMPONENT codec)

# The prefix is relative to the file, so that the installed folder can be moved.
file(RELATIVE_PATH V2X_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/v2x_codec.pc.in ${install_folder}/v2x_codec.pc @ONLY)
install(FILES ${install_folder}/v2x_codec.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT codec)
