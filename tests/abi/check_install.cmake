# Installs the build tree into a scratch prefix, then builds the consumer
# program against that prefix with find_package and with pkg-config, and runs
# what it built against the installed shared object.
#   BUILD_DIR, WORK_DIR, LIBDIR, INCLUDEDIR, HEADER_DIR, CONSUMER_DIR,
#   C_COMPILER, GENERATOR, PKG_CONFIG
cmake_minimum_required(VERSION 3.22)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n  ${ARGN}\n${out}${err}")
  endif()
  message(STATUS "${what}: ok")
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(libdir ${prefix}/${LIBDIR})
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

set(expected_files
  ${libdir}/libzqsys.so ${libdir}/libzqsys.a
  ${libdir}/cmake/ZqSys/ZqSysConfig.cmake ${libdir}/cmake/ZqSys/ZqSysConfigVersion.cmake
  ${libdir}/pkgconfig/zqsys.pc
  ${prefix}/bin/zqrouter ${prefix}/etc/zqsys/zqrouter.ini
  ${prefix}/lib/systemd/system/zqrouter.service)
file(GLOB headers RELATIVE ${HEADER_DIR} ${HEADER_DIR}/*.h)
foreach(header IN LISTS headers)
  list(APPEND expected_files ${prefix}/${INCLUDEDIR}/zqsys/${header})
endforeach()
foreach(file IN LISTS expected_files)
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

# The unit starts the router where it was installed.
file(READ ${prefix}/lib/systemd/system/zqrouter.service unit)
if(NOT unit MATCHES "ExecStart=${prefix}/bin/zqrouter --config ${prefix}/etc/zqsys/zqrouter.ini")
  message(FATAL_ERROR "the unit does not start the installed router:\n${unit}")
endif()
if(NOT unit MATCHES "RestartPreventExitStatus=2 78")
  message(FATAL_ERROR "the unit restarts a router that cannot start:\n${unit}")
endif()
run("run the installed router" ${prefix}/bin/zqrouter --help)

# A package's staged install for /usr: the INI lands in /etc, and the unit
# names the final paths, not the staging ones.
set(staged ${WORK_DIR}/staged)
run("staged install" ${CMAKE_COMMAND} -E env DESTDIR=${staged}
  ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix /usr)
foreach(file ${staged}/etc/zqsys/zqrouter.ini ${staged}/usr/bin/zqrouter
    ${staged}/usr/lib/systemd/system/zqrouter.service)
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "not staged: ${file}")
  endif()
endforeach()
file(READ ${staged}/usr/lib/systemd/system/zqrouter.service unit)
if(NOT unit MATCHES "ExecStart=/usr/bin/zqrouter --config /etc/zqsys/zqrouter.ini")
  message(FATAL_ERROR "the staged unit names the wrong paths:\n${unit}")
endif()

set(runtime_env ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir})

# With CMake: find_package(ZqSys) and the exported targets, shared and static.
set(cmake_build ${WORK_DIR}/cmake-consumer)
run("configure the find_package consumer"
  ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${cmake_build} -G ${GENERATOR}
  -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_PREFIX_PATH=${prefix}
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DZQSYS_EXPECTED_PREFIX=${prefix})
run("build the find_package consumer" ${CMAKE_COMMAND} --build ${cmake_build})
run("run the find_package consumer" ${runtime_env} ${cmake_build}/zqsys_consumer)
message(STATUS "${run_output}")
run("run the static find_package consumer" ${cmake_build}/zqsys_consumer_static)

# With pkg-config and the C compiler alone, the way a Makefile would.
run("pkg-config"
  ${CMAKE_COMMAND} -E env PKG_CONFIG_LIBDIR=${libdir}/pkgconfig PKG_CONFIG_PATH=
  ${PKG_CONFIG} --cflags --libs zqsys)
separate_arguments(pkg_flags UNIX_COMMAND "${run_output}")
message(STATUS "pkg-config flags: ${pkg_flags}")
run("build the pkg-config consumer"
  ${C_COMPILER} -std=c11 -Wall -Wextra -Werror ${CONSUMER_DIR}/consumer.c ${pkg_flags}
  -o ${WORK_DIR}/pkg-config-consumer)
run("run the pkg-config consumer" ${runtime_env} ${WORK_DIR}/pkg-config-consumer)
message(STATUS "${run_output}")
