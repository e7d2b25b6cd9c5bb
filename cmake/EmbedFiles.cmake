# Writes the files of a folder into a C++ source:
#   cmake -D OUTPUT=Files.cpp -D FOLDER=... -D "FILES=a.html b.css" -P EmbedFiles.cmake
separate_arguments(FILES)
set(arrays "")
set(rows "")
foreach(name IN LISTS FILES)
  file(READ ${FOLDER}/${name} bytes HEX)
  file(SHA256 ${FOLDER}/${name} hash)
  string(SUBSTRING ${hash} 0 32 hash)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(REGEX REPLACE "[^a-z]" "_" array ${name})
  string(APPEND arrays "constexpr unsigned char ${array}[] = {${bytes}};\n")
  string(APPEND rows "    {\"${name}\", \"${hash}\", {reinterpret_cast<const char*>(${array}), sizeof ${array}}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"gateway/console/ConsoleFile.h\"

namespace {
${arrays}}  // namespace

std::span<const ptzgate::ConsoleFile> ptzgate::ConsoleFiles() {
  static const ConsoleFile files[] = {
${rows}  };
  return files;
}
")
