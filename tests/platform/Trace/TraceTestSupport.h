#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

// Helpers shared by the tracing, logging and toggle tests: a scratch directory, an environment
// variable set for one scope, and stderr captured for one scope.
namespace TraceTest {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "marl-test.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot create a temporary directory");
    }
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;

  std::filesystem::path const& path() const { return path_; }
  std::filesystem::path operator/(std::string const& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

class ScopedEnv {
 public:
  // value nullopt unsets the variable for the scope.
  ScopedEnv(std::string name, std::optional<std::string> const& value) : name_(std::move(name)) {
    if (char const* old = std::getenv(name_.c_str())) {
      old_ = old;
    }
    if (value) {
      ::setenv(name_.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  ~ScopedEnv() {
    if (old_) {
      ::setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  ScopedEnv(ScopedEnv const&) = delete;
  ScopedEnv& operator=(ScopedEnv const&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

inline std::string readFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeFile(std::filesystem::path const& path, std::string const& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

// Sends file descriptor 2 to a file while in scope; text() returns what was written so far.
class StderrCapture {
 public:
  StderrCapture() : saved_(::dup(STDERR_FILENO)) {
    int const fd = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
  }
  ~StderrCapture() { restore(); }
  StderrCapture(StderrCapture const&) = delete;
  StderrCapture& operator=(StderrCapture const&) = delete;

  std::string text() const { return readFile(file_); }
  void restore() {
    if (saved_ >= 0) {
      ::dup2(saved_, STDERR_FILENO);
      ::close(saved_);
      saved_ = -1;
    }
  }

 private:
  TempDir dir_;
  std::filesystem::path file_ = dir_ / "stderr";
  int saved_;
};

}  // namespace TraceTest
