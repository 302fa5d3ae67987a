# Writes a C++ source that holds files as texts. A constant is named after its file: k_page_css for page.css.
#
#   cmake -D OUTPUT=FILE -D FILES=FILE,FILE... -P EmbedTexts.cmake
string(REPLACE "," ";" files "${FILES}")
set(source "#include <string_view>\n\nnamespace velmoor {\n\n")
foreach(file IN LISTS files)
  get_filename_component(name "${file}" NAME)
  string(MAKE_C_IDENTIFIER "k_${name}" name)
  file(READ "${file}" text)
  string(APPEND source "extern const std::string_view ${name};\n"
    "const std::string_view ${name} = R\"embedded(${text})embedded\";\n\n")
endforeach()
file(WRITE "${OUTPUT}" "${source}}  // namespace velmoor\n")
