# The plug-in formats, built on DPF from Debian's dpf-source. DPF's own CMake module builds VST2, VST3 and the
# JACK standalone; this file adds what it lacks: a CLAP target, HAVE_JACK for the standalone (so it talks to
# JACK through libjack), and an LV2 bundle whose Turtle generator runs with a private home and the compiled
# factory content, so that building never touches the user's own settings and the presets are the factory's.
set(DPF_ROOT_DIR "/usr/share/dpf" CACHE PATH "DPF sources")
if(NOT EXISTS "${DPF_ROOT_DIR}/cmake/DPF-plugin.cmake")
  message(FATAL_ERROR "DPF not found at ${DPF_ROOT_DIR}: run 'make deps' (Debian package dpf-source)")
endif()
list(APPEND CMAKE_MODULE_PATH "${DPF_ROOT_DIR}/cmake")
include(DPF-plugin)

function(orvanto_add_clap NAME)
  dpf__add_module("${NAME}-clap")
  dpf__add_plugin_main("${NAME}-clap" "clap")
  dpf__set_module_export_list("${NAME}-clap" "clap")
  dpf__add_ui_main("${NAME}-clap" "clap" dgl-cairo)
  target_link_libraries("${NAME}-clap" PRIVATE "${NAME}-dsp" "${NAME}-ui")
  set_target_properties("${NAME}-clap" PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin/$<0:>"
    OUTPUT_NAME "${NAME}"
    SUFFIX ".clap"
    PREFIX "")
endfunction()

function(orvanto_add_lv2 NAME)
  dpf__add_module("${NAME}-lv2")
  dpf__add_plugin_main("${NAME}-lv2" "lv2")
  # The editor reaches the plug-in instance directly, so DPF wants the UI in the same binary.
  dpf__add_ui_main("${NAME}-lv2" "lv2" dgl-cairo)
  dpf__set_module_export_list("${NAME}-lv2" "lv2")
  target_link_libraries("${NAME}-lv2" PRIVATE "${NAME}-dsp" "${NAME}-ui")
  set(bundle "${PROJECT_BINARY_DIR}/bin/${NAME}.lv2")
  set_target_properties("${NAME}-lv2" PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY "${bundle}/$<0:>"
    OUTPUT_NAME "${NAME}_dsp"
    PREFIX "")
  dpf__add_lv2_ttl_generator()
  add_dependencies("${NAME}-lv2" lv2_ttl_generator orvanto-content)
  set(home "${PROJECT_BINARY_DIR}/ttl-home")
  add_custom_command(TARGET "${NAME}-lv2" POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -rf "${home}"
    COMMAND ${CMAKE_COMMAND} -E env "HOME=${home}" "XDG_CONFIG_HOME=${home}/config" "XDG_DATA_HOME=${home}/data"
            "ORVANTO_CONTENT_SOURCE=${ORVANTO_CONTENT_DIR}"
            "$<TARGET_FILE:lv2_ttl_generator>" "$<TARGET_FILE:${NAME}-lv2>"
    WORKING_DIRECTORY "${bundle}"
    VERBATIM)
endfunction()
