# The steps that the scripts here are made of. All that is built stays in ${WORK} and is only brought
# up to date by the next run; what is installed is installed anew.
set(PREFIX ${WORK}/prefix)
file(REMOVE_RECURSE ${PREFIX})

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# install_component(<component>...): of the build that runs this test.
function(install_component)
    foreach(component ${ARGV})
        run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} --component ${component})
    endforeach()
endfunction()

# build_project(<name> <source> <cmake argument>...): without optimisation, which nobody needs here.
function(build_project name source)
    run(${CMAKE_COMMAND} -S ${source} -B ${WORK}/${name} -G ${GENERATOR}
        -DCMAKE_CXX_COMPILER=${COMPILER}
        -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}
        -DCMAKE_CXX_FLAGS=-O0
        -DCMAKE_PREFIX_PATH=${PREFIX}
        -DCMAKE_INSTALL_PREFIX=${PREFIX}
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
        ${ARGN})
    run(${CMAKE_COMMAND} --build ${WORK}/${name} --parallel 2)
endfunction()
