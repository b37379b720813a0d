#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace test_support {

namespace fs = std::filesystem;

Temp_Dir::Temp_Dir(const std::string& place) {
  const fs::path parent = place.empty() ? fs::temp_directory_path() : fs::path(place);
  std::string name = (parent / "tessarin-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) std::abort();
  path_ = name;
}

Temp_Dir::~Temp_Dir() {
  std::error_code ignored;  // a test that took away permissions puts them back itself
  fs::remove_all(path_, ignored);
}

std::string Temp_Dir::write(const std::string& name, const std::string& content) const {
  const fs::path file = fs::path(path_) / name;
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << content;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
  return file.string();
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace test_support
