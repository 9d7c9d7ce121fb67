# Writes a C++ source that holds files as byte arrays, run at build time:
#   cmake -DOUTPUT=out.cpp -DNAMESPACE=ns -DFILES="name1=path1|name2=path2" -P EmbedFiles.cmake
# Each file becomes `extern const unsigned char NAME[]` (its bytes and a
# closing zero) and `extern const std::size_t NAME_size` (its length without
# the zero), in namespace NAMESPACE.
set(text "// Made from the files below by cmake/EmbedFiles.cmake; do not edit.\n")
string(APPEND text "#include <cstddef>\n\nnamespace ${NAMESPACE} {\n")
string(REPLACE "|" ";" files "${FILES}")
foreach(entry IN LISTS files)
  string(FIND "${entry}" "=" at)
  string(SUBSTRING "${entry}" 0 ${at} name)
  math(EXPR from "${at} + 1")
  string(SUBSTRING "${entry}" ${from} -1 path)
  file(READ "${path}" hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR size "${digits} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  # Lines of 24 bytes, so that the source stays readable in a diff tool.
  string(REGEX REPLACE "((0x..,){24})" "\\1\n" bytes "${bytes}")
  string(APPEND text "\n// ${path}\nextern const unsigned char ${name}[] = {\n${bytes}0x00};\n")
  string(APPEND text "extern const std::size_t ${name}_size = ${size};\n")
endforeach()
string(APPEND text "\n}  // namespace ${NAMESPACE}\n")
file(WRITE "${OUTPUT}.new" "${text}")
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
