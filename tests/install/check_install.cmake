# Installs the codec library into a separate folder, builds the installed examples with CMake and with pkg-config, as C
# and as C++, and compares what they print. A C program must need no library but libc.
# All headers must compile without a warning: each alone as C11, all together as C++11.
# usage: cmake -D BUILD=<build tree> -D SOURCE=<this folder> -D WORK=<folder to use> -D HEX=<frame of a vehicle>
#   -P check_install.cmake
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --component codec --prefix ${WORK}/prefix
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE examples ${WORK}/prefix/*/build_spat.c)
cmake_path(GET examples PARENT_PATH examples)

# check(FOLDER): runs the two programs in FOLDER
function(check folder)
  file(STRINGS ${SOURCE}/build_spat.txt frame LIMIT_COUNT 1)
  foreach(case "build_spat;1795401475" "decode_spat;${frame}")
    list(GET case 0 name)
    execute_process(COMMAND ${folder}/${case} OUTPUT_FILE ${folder}/${name}.txt COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${folder}/${name}.txt ${SOURCE}/${name}.txt
      COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  # arguments that the programs reject
  foreach(case "build_spat;x" "decode_spat;0" "decode_spat;${HEX}" "decode_spat;${frame}00" "decode_spat;37")
    execute_process(COMMAND ${folder}/${case} ERROR_QUIET RESULT_VARIABLE status)
    if(NOT status MATCHES "^[12]$")
      message(FATAL_ERROR "${case}: exit status ${status}")
    endif()
  endforeach()
endfunction()

# check_needed(FOLDER): fails if a program in FOLDER needs another library than libc
function(check_needed folder)
  foreach(name decode_spat build_spat)
    execute_process(COMMAND readelf -d ${folder}/${name} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "NEEDED[^[]*\\[[^]]*" needed "${text}")
    if(NOT needed MATCHES "^NEEDED[^[]*\\[libc\\.so\\.6$")
      message(FATAL_ERROR "${folder}/${name}: ${needed}")
    endif()
  endforeach()
endfunction()

foreach(step
    "-S;${SOURCE};-B;${WORK}/cmake;-G;Ninja;-DCMAKE_PREFIX_PATH=${WORK}/prefix;-DEXAMPLES=${examples}"
    "--build;${WORK}/cmake")
  execute_process(COMMAND ${CMAKE_COMMAND} ${step} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
check(${WORK}/cmake)
check_needed(${WORK}/cmake)

file(GLOB_RECURSE pc ${WORK}/prefix/v2x_codec.pc)
cmake_path(GET pc PARENT_PATH pc_folder)
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_folder} pkg-config --cflags --libs v2x_codec
  OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND ${flags})
set(warnings -Wall -Wextra -Wpedantic -Werror)
foreach(compiler "gcc;-std=c11" "g++;-xc++;-std=c++11" "g++;-xc++;-std=c++20")
  string(MAKE_C_IDENTIFIER "${compiler}" folder)
  set(folder ${WORK}/${folder})
  file(MAKE_DIRECTORY ${folder})
  foreach(name decode_spat build_spat)
    execute_process(COMMAND ${compiler} ${warnings} -o ${folder}/${name} ${examples}/${name}.c -xnone ${flags}
      COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  check(${folder})
endforeach()
check_needed(${WORK}/gcc__std_c11)

set(include ${WORK}/prefix/include/v2x_codec)
file(GLOB_RECURSE headers RELATIVE ${include} ${include}/*.h)
set(all "")
foreach(header IN LISTS headers)
  string(PREPEND all "#include \"${header}\"\n") # in reverse order
  string(MAKE_C_IDENTIFIER ${header} name)
  file(WRITE ${WORK}/headers/${name}.c "#include \"${header}\"\n")
endforeach()
file(WRITE ${WORK}/headers/all.cpp "${all}")
file(GLOB sources ${WORK}/headers/*.c)
foreach(compiler "gcc;-std=c11;${sources}" "g++;-std=c++11;${WORK}/headers/all.cpp")
  execute_process(COMMAND ${compiler} ${flags} -fsyntax-only ${warnings} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
