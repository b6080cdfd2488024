# Installs the built tree into a scratch prefix, then builds and runs a small outside project
# against it twice: once through find_package(ZnUtil), once through pkg-config.
# Arguments: SOURCE_DIR, BUILD_DIR, WORK_DIR, CMAKE_CXX_COMPILER, and EXTRA_FLAGS: the
# compile flags of the library's build (the sanitizers), which the consumer must share.

function(run_step description)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${description} failed (${result}):\n${output}")
    endif()
    message(STATUS "${description}: ok")
    set(step_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(header ZnUtil/ZnString.h ZnUtil/ZnHandle.h tavoris/Logger.h tavoris/OnDemandSingleton.h)
    if(NOT EXISTS ${prefix}/include/${header})
        message(FATAL_ERROR "installed tree lacks include/${header}")
    endif()
endforeach()

# CMake package.
run_step("configure consumer" ${CMAKE_COMMAND}
    -S ${SOURCE_DIR}/tests/install/consumer -B ${WORK_DIR}/cmake-build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
    -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${EXTRA_FLAGS}")
run_step("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run_step("run consumer" ${WORK_DIR}/cmake-build/zn-install-consumer)
if(NOT step_output MATCHES "consumer: all checks passed")
    message(FATAL_ERROR "consumer printed:\n${step_output}")
endif()

# pkg-config.
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
list(GET pc_dirs 0 pc_dir)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run_step("pkg-config flags" pkg-config --cflags --libs ZnUtil)
string(STRIP "${step_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
separate_arguments(extra_flags UNIX_COMMAND "${EXTRA_FLAGS}")
get_filename_component(libdir "${pc_dir}" DIRECTORY)
run_step("build consumer with pkg-config" ${CMAKE_CXX_COMPILER} -std=c++17
    ${extra_flags} ${SOURCE_DIR}/tests/install/consumer/main.cpp -o ${WORK_DIR}/pc-consumer ${pc_flags}
    -Wl,-rpath,${libdir})
run_step("run pkg-config consumer" ${WORK_DIR}/pc-consumer)
if(NOT step_output MATCHES "consumer: all checks passed")
    message(FATAL_ERROR "pkg-config consumer printed:\n${step_output}")
endif()
