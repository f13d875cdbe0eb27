#include "Cog/Toggle.h"

#include <errno.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>

namespace Cog {
namespace {

void warn(std::filesystem::path const& path, std::string_view problem, std::string_view name,
          bool defaultValue) {
  std::string const line = "toggle file " + path.string() + ": " + std::string(problem) +
                           "; using the default (" + (defaultValue ? "true" : "false") + ") for " +
                           std::string(name) + "\n";
  [[maybe_unused]] auto const n = ::write(STDERR_FILENO, line.data(), line.size());
}

// Toggle files are named plainly inside the toggle directory, never by a path out of it.
bool isPlainFileName(std::string_view file) {
  return !file.empty() && file != "." && file != ".." && file.find('/') == std::string_view::npos &&
         file.find('\0') == std::string_view::npos;
}

// The directory a host set for the process's agent, if any.
struct ToggleDirSetting {
  std::mutex mutex;
  std::optional<std::filesystem::path> dir;
};

ToggleDirSetting& toggleDirSetting() {
  static ToggleDirSetting setting;
  return setting;
}

}  // namespace

void toggleDirIs(std::filesystem::path dir) {
  auto& setting = toggleDirSetting();
  std::lock_guard lock(setting.mutex);
  if (dir.empty()) {
    setting.dir.reset();
  } else {
    setting.dir = std::move(dir);
  }
}

std::filesystem::path toggleDir() {
  {
    auto& setting = toggleDirSetting();
    std::lock_guard lock(setting.mutex);
    if (setting.dir) {
      return *setting.dir;
    }
  }
  char const* const env = std::getenv(kToggleDirEnv);
  return env != nullptr && *env != '\0' ? std::filesystem::path(env)
                                        : std::filesystem::path(kDefaultToggleDir);
}

bool getToggleState(std::string_view name, std::string_view file, bool defaultValue) {
  std::filesystem::path const dir = toggleDir();
  if (!isPlainFileName(file)) {
    warn(dir / std::string(file), "not a plain file name", name, defaultValue);
    return defaultValue;
  }
  std::filesystem::path const path = dir / std::string(file);
  std::error_code ec;
  auto const status = std::filesystem::status(path, ec);
  if (status.type() == std::filesystem::file_type::not_found) {
    return defaultValue;
  }
  if (ec) {
    warn(path, "cannot be read: " + ec.message(), name, defaultValue);
    return defaultValue;
  }
  if (status.type() != std::filesystem::file_type::regular) {
    warn(path, "not a regular file", name, defaultValue);
    return defaultValue;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) {
    warn(path, "cannot be read: " + std::system_category().message(errno), name, defaultValue);
    return defaultValue;
  }
  std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) {
    warn(path, "cannot be read", name, defaultValue);
    return defaultValue;
  }

  nlohmann::json toggles;
  try {
    toggles = nlohmann::json::parse(text);
  } catch (nlohmann::json::parse_error const& e) {
    // what() starts with the library's exception tag; the rest says where and what.
    std::string_view detail = e.what();
    if (auto const tagEnd = detail.find("] "); tagEnd != std::string_view::npos) {
      detail.remove_prefix(tagEnd + 2);
    }
    warn(path, "not valid JSON: " + std::string(detail), name, defaultValue);
    return defaultValue;
  }
  if (!toggles.is_object()) {
    warn(path,
         std::string("expected a JSON object of toggle names, found a value of type ") +
             toggles.type_name(),
         name, defaultValue);
    return defaultValue;
  }
  auto const entry = toggles.find(std::string(name));
  if (entry == toggles.end()) {
    return defaultValue;
  }
  if (!entry->is_boolean()) {
    warn(path,
         "toggle " + std::string(name) + " has a value of type " + entry->type_name() +
             ", expected true or false",
         name, defaultValue);
    return defaultValue;
  }
  return entry->get<bool>();
}

}  // namespace Cog
