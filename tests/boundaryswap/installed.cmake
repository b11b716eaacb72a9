# Installs the libraries of this build and uses them from a program of another project.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)

install_component(VelmarRecords VelmarDeviceBoundary VelmarFirmware)

build_project(consumer ${CMAKE_CURRENT_LIST_DIR}/consumer)
run(${WORK}/consumer/consumer)
