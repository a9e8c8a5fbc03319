#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace kavratest {

// A directory of the test's own, gone with it, with a database file that may or may not exist.
class DatabaseDirectory {
 public:
  DatabaseDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "kavra-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = name;
  }
  DatabaseDirectory(const DatabaseDirectory&) = delete;
  DatabaseDirectory& operator=(const DatabaseDirectory&) = delete;
  ~DatabaseDirectory() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  const std::filesystem::path& path() const { return path_; }
  std::string file() const { return (path_ / "kavra.json").string(); }
  std::string url() const { return "file:" + file(); }

  // Rewrites the file in place.
  void write(const std::string& text) const { write(file(), text); }
  static void write(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text << std::flush;
    if (!out) throw std::runtime_error("cannot write " + path);
  }
  // Puts a new file in its place.
  void replace(const std::string& text) const {
    const std::string other = (path_ / "other").string();
    write(other, text);
    std::filesystem::rename(other, file());
  }
  void remove() const { std::filesystem::remove(file()); }
  std::string read() const {
    std::ifstream in(file(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

 private:
  std::filesystem::path path_;
};

}  // namespace kavratest
