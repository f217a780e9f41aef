# The daemon and the tools with their files.
install(TARGETS v2x_spat_convert RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(TARGETS v2x_spat_ctl v2x_logtool RUNTIME COMPONENT daemon)
install(TARGETS v2x_spat_sim v2x_msg RUNTIME COMPONENT tools)
install(FILES ${CMAKE_SOURCE_DIR}/tools/wireshark/v2x_spat.lua
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/contrib/prometheus
  DESTINATION ${CMAKE_INSTALL_DATADIR}/v2x_spat_convert COMPONENT daemon)

# v2x_install_conf(NAME [OLD NEW]...): installs conf/NAME with each text OLD, which must occur once, replaced by NEW. Keeps a
# file that exists.
function(v2x_install_conf name)
  set(source ${CMAKE_SOURCE_DIR}/conf/${name})
  set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(READ ${source} text)
  set(index 1)
  while(index LESS ARGC)
    math(EXPR next "${index} + 1")
    set(old "${ARGV${index}}")
    set(new "${ARGV${next}}")
    string(FIND "${text}" "${old}" first)
    string(FIND "${text}" "${old}" final REVERSE)
    if(first EQUAL -1 OR NOT first EQUAL final)
      message(FATAL_ERROR "conf/${name}: the text to replace must occur once: ${old}")
    endif()
    string(REPLACE "${old}" "${new}" text "${text}")
    math(EXPR index "${index} + 2")
  endwhile()
  file(CONFIGURE OUTPUT ${install_folder}/conf/${name} CONTENT "${text}" @ONLY)
  install(CODE "if(NOT EXISTS \"\$ENV{DESTDIR}${V2X_CONF_DIR}/${name}\")
    file(INSTALL \"${install_folder}/conf/${name}\" DESTINATION \"${V2X_CONF_DIR}\")
  endif()" COMPONENT daemon)
endfunction()

v2x_install_conf(v2x_spat_convert.cfg
  "# \"v2x_spat_ctl check -w DIR\" lists the mistakes of the files in DIR/conf without a start of the daemon."
  "# \"v2x_spat_ctl check\" lists the mistakes of the files in this directory without a start of the daemon."
  "# This file enables only the adapter of the signal learner. If you enable both adapters, set"
  "# Both adapters are disabled: enable the adapter of your device. If you enable both adapters, set"
  "/opt/v2x_service/conf/sysinfo.xml" "${V2X_CONF_DIR}/sysinfo.xml"
  "IsEnable = true;  " "IsEnable = false; "
  "/opt/v2x_service/v2x_spat_convert.sock" "${V2X_RUN_DIR}/control.sock")
v2x_install_conf(v2x_ipc.cfg)
v2x_install_conf(sysinfo.xml)

# systemd reads these folders below /usr, below /usr/local, and the units also below /lib.
set(V2X_UNIT_DIR lib/systemd/system CACHE PATH "Directory of the systemd units")
set(systemd_folder ${install_folder}/systemd)
foreach(name v2x-spat-convert.service v2x-spat-web.service sysusers.conf tmpfiles.conf)
  configure_file(${CMAKE_SOURCE_DIR}/debian/systemd/${name}.in ${systemd_folder}/${name} @ONLY)
endforeach()
install(FILES ${systemd_folder}/v2x-spat-convert.service ${systemd_folder}/v2x-spat-web.service
  DESTINATION ${V2X_UNIT_DIR} COMPONENT daemon)
foreach(kind sysusers tmpfiles)
  install(FILES ${systemd_folder}/${kind}.conf DESTINATION lib/${kind}.d RENAME v2x-spat-convert.conf COMPONENT daemon)
endforeach()

# Sets `result` to the component of a program, or of the page NAME.SECTION.
function(v2x_get_component name result)
  set(${result} daemon PARENT_SCOPE)
  if(name MATCHES "^v2x_(spat_sim|msg)")
    set(${result} tools PARENT_SCOPE)
  endif()
endfunction()

# bash loads a program's completion from the file with the name of the program. All programs share one file.
foreach(program v2x_spat_convert v2x_spat_ctl v2x_logtool v2x_spat_sim v2x_msg)
  v2x_get_component(${program} component)
  install(FILES ${CMAKE_SOURCE_DIR}/debian/completion/v2x_spat_convert RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
endforeach()

find_program(V2X_SCDOC scdoc)
if(NOT V2X_SCDOC)
  message(STATUS "scdoc not found: the manuals are not built")
  return()
endif()
file(GLOB manuals CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/debian/man/*.scd)
set(pages "")
foreach(manual IN LISTS manuals)
  cmake_path(GET manual STEM LAST_ONLY page) # NAME.SECTION
  cmake_path(GET page EXTENSION LAST_ONLY section)
  string(REPLACE "." "man" folder ${section})
  set(source ${install_folder}/man/${page}.scd)
  set(output ${install_folder}/man/${page})
  configure_file(${manual} ${source} @ONLY)
  add_custom_command(OUTPUT ${output} COMMAND ${V2X_SCDOC} < ${source} > ${output} DEPENDS ${source} VERBATIM)
  list(APPEND pages ${output})
  v2x_get_component(${page} component)
  install(FILES ${output} DESTINATION ${CMAKE_INSTALL_MANDIR}/${folder} COMPONENT ${component})
endforeach()
add_custom_target(v2x_manuals ALL DEPENDS ${pages})
