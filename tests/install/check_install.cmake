# Installs the codec library into a separate folder, then builds and runs a program that uses it.
# usage: cmake -D BUILD=<build tree> -D SOURCE=<this folder> -D WORK=<folder to use> -D HEX=<frame> -P check_install.cmake
file(REMOVE_RECURSE ${WORK})
foreach(step
    "--install;${BUILD};--component;codec;--prefix;${WORK}/prefix"
    "-S;${SOURCE};-B;${WORK}/build;-G;Ninja;-DCMAKE_PREFIX_PATH=${WORK}/prefix"
    "--build;${WORK}/build")
  execute_process(COMMAND ${CMAKE_COMMAND} ${step} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND ${WORK}/build/codec_user ${HEX} COMMAND_ERROR_IS_FATAL ANY)

# The same program with pkg-config instead of CMake.
file(GLOB_RECURSE pc ${WORK}/prefix/v2x_codec.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_folder} pkg-config --cflags --libs v2x_codec
  OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND ${flags})
execute_process(COMMAND c++ -std=c++20 -o ${WORK}/codec_user ${SOURCE}/codec_user.cpp ${flags} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${WORK}/codec_user ${HEX} COMMAND_ERROR_IS_FATAL ANY)
