# Install rules. Each component can be installed by itself: `cmake --install BUILD --component daemon`.
#   daemon   v2x_spat_convert, v2x_spat_ctl and v2x_logtool, with configuration, units, manuals and completion
#   tools    v2x_spat_sim and v2x_msg, with manuals, completion and the Wireshark dissector
#   codec    the message codec library with its headers, CMake package and pkg-config file

# systemd makes the units' log and run-time directories below /var/log and /run, whatever the prefix is.
set(CMAKE_INSTALL_SYSCONFDIR /etc CACHE PATH "Parent of the configuration directory")
set(CMAKE_INSTALL_LOCALSTATEDIR /var CACHE PATH "Parent of log/")
set(CMAKE_INSTALL_RUNSTATEDIR /run CACHE PATH "Parent of the control socket's directory")
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(V2X_CONF_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/v2x_spat_convert)
set(V2X_LOG_DIR ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/log/v2x_spat_convert)
set(V2X_RUN_DIR ${CMAKE_INSTALL_FULL_RUNSTATEDIR}/v2x_spat_convert)
set(install_folder ${CMAKE_BINARY_DIR}/install) # files that CMake makes from templates

include(V2xInstallCodec)
if(V2X_DAEMON)
  include(V2xInstallPrograms)
endif()
