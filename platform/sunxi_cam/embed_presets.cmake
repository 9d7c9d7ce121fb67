# Writes OUTPUT, a C++ source holding the text of each preset file in
# FILES (separated by |) under its name (the file name without ".json"), so the
# camera simulator knows its shipped presets wherever it runs. Run with
# cmake -P at build time.
set(body "// Generated from platform/sunxi_cam/presets/*.json; do not edit.\n")
string(APPEND body "#include \"platform/sunxi_cam/presets.h\"\n\n")
string(APPEND body "namespace sunxi_cam::sim {\n\nconst PresetFile kShippedPresets[] = {\n")
string(REPLACE "|" ";" FILES "${FILES}")
set(count 0)
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME_WE)
  file(READ ${file} text)
  string(FIND "${text}" ")preset\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${file} holds the text )preset\" and cannot be embedded")
  endif()
  string(APPEND body "    {\"${name}\", R\"preset(${text})preset\"},\n")
  math(EXPR count "${count} + 1")
endforeach()
string(APPEND body "};\nconst int kShippedPresetCount = ${count};\n\n}  // namespace sunxi_cam::sim\n")
file(WRITE ${OUTPUT}.new "${body}")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different ${OUTPUT}.new ${OUTPUT})
