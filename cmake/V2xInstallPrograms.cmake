# The daemon and the tools with their files.
install(TARGETS v2x_spat_convert RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(TARGETS v2x_spat_ctl v2x_logtool RUNTIME COMPONENT daemon)
install(TARGETS v2x_spat_sim v2x_msg RUNTIME COMPONENT tools)
install(FILES ${CMAKE_SOURCE_DIR}/tools/wireshark/v2x_spat.lua
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)

# v2x_install_conf(NAME [OLD NEW]...): installs conf/NAME with each text OLD, which must occur once, replaced by NEW
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
  install(FILES ${install_folder}/conf/${name} DESTINATION ${V2X_CONF_DIR} COMPONENT daemon)
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
foreach(row v2x-spat-convert.service:${V2X_UNIT_DIR} v2x-spat-web.service:${V2X_UNIT_DIR}
    sysusers.conf:lib/sysusers.d tmpfiles.conf:lib/tmpfiles.d)
  string(REPLACE ":" ";" row "${row}")
  list(GET row 0 name)
  list(GET row 1 folder)
  configure_file(${CMAKE_SOURCE_DIR}/debian/systemd/${name}.in ${install_folder}/systemd/${name} @ONLY)
  string(REGEX REPLACE "^(sysusers|tmpfiles)" "v2x-spat-convert" installed_name ${name})
  install(FILES ${install_folder}/systemd/${name} DESTINATION ${folder} RENAME ${installed_name} COMPONENT daemon)
endforeach()

# bash loads a program's completion from the file with the name of the program. All programs share one file.
set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
foreach(program v2x_spat_convert v2x_spat_ctl v2x_logtool v2x_spat_sim v2x_msg)
  set(component daemon)
  if(program MATCHES "sim|msg")
    set(component tools)
  endif()
  install(FILES ${CMAKE_SOURCE_DIR}/debian/completion/v2x_spat_convert
    DESTINATION ${completions} RENAME ${program} COMPONENT ${component})
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
  string(REGEX REPLACE ".*\\." "" section ${page})
  set(source ${install_folder}/man/${page}.scd)
  configure_file(${manual} ${source} @ONLY)
  add_custom_command(OUTPUT ${install_folder}/man/${page}
    COMMAND ${V2X_SCDOC} < ${source} > ${install_folder}/man/${page} DEPENDS ${source} VERBATIM)
  list(APPEND pages ${install_folder}/man/${page})
  set(component daemon)
  if(page MATCHES "sim|msg")
    set(component tools)
  endif()
  install(FILES ${install_folder}/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()
add_custom_target(v2x_manuals ALL DEPENDS ${pages})
