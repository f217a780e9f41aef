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
