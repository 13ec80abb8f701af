# Installs the build tree BUILD_DIR into a prefix, moves the prefix (the package must not
# depend on where it was installed), then configures, builds and runs tests/install/consumer
# against it and checks what the two programs print. Run by CTest (test install_consumer).
set(work ${WORK_DIR})
file(REMOVE_RECURSE ${work})
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGV}\n${out}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${work}/staged)
file(RENAME ${work}/staged ${work}/prefix)
file(GLOB_RECURSE cfg ${work}/prefix/lib/cmake/*.cmake)
foreach(f ${cfg})
  file(READ ${f} text)
  foreach(p ${BUILD_DIR} ${SOURCE_DIR} ${work}/staged)
    string(FIND "${text}" "${p}" at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "${f} names ${p}: the package is not relocatable")
    endif()
  endforeach()
endforeach()

run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${work}/consumer -G Ninja
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${work}/prefix
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
run(${CMAKE_COMMAND} --build ${work}/consumer)
run(${work}/consumer/app)
if(NOT out STREQUAL "0.25 9 NaN \n")
  message(FATAL_ERROR "app printed '${out}', expected '0.25 9 NaN '")
endif()
run(${work}/consumer/app_module)
if(NOT out STREQUAL "5 5 NaN \n")
  message(FATAL_ERROR "app_module printed '${out}', expected '5 5 NaN '")
endif()
file(REMOVE_RECURSE ${work})
