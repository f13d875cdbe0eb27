#include "Loom/Name.h"

#include <functional>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "Loom/Immortal.h"
#include "Loom/Threading.h"

namespace Loom {

namespace {

// The interned texts by content. Outlives every static handle (it is never destroyed).
struct Pool {
  std::mutex mutex;
  std::unordered_map<std::string_view, Name::Text*> texts;
};

Pool& pool() {
  static Immortal<Pool> instance;
  return instance.get();
}

// Holds the pool's lock while the framework runs several threads, else nothing.
class PoolLock {
 public:
  PoolLock() {
    if (Threading::multiThreaded()) {
      lock_.emplace(pool().mutex);
    }
  }

 private:
  std::optional<std::lock_guard<std::mutex>> lock_;
};

String const kEmpty;

std::uint64_t prefixOf(std::string_view text) {
  std::uint64_t prefix = 0;
  for (std::size_t i = 0; i < sizeof prefix; ++i) {
    prefix = prefix << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0u);
  }
  return prefix;
}

}  // namespace

Name::Name(String const& text) {
  if (text.empty()) {
    return;
  }
  PoolLock const lock;
  auto& texts = pool().texts;
  auto const found = texts.find(text.view());
  if (found != texts.end()) {
    text_ = found->second;
  } else {
    text_ = new Text{text, std::hash<std::string_view>{}(text.view()), prefixOf(text.view()), 0};
    texts.emplace(text_->text.view(), text_);
  }
  ++text_->handles;
}

String const& Name::str() const noexcept {
  return text_ ? text_->text : kEmpty;
}

std::size_t Name::hash(std::size_t seed) const noexcept {
  return text_ ? hashCombine(seed, text_->hash) : kEmpty.hash(seed);
}

void Name::retainLocked() const noexcept {
  PoolLock const lock;
  ++text_->handles;
}

void Name::releaseLocked() noexcept {
  PoolLock const lock;
  if (--text_->handles == 0) {
    pool().texts.erase(text_->text.view());
    delete text_;
  }
}

std::size_t Name::interned() {
  PoolLock const lock;
  return pool().texts.size();
}

}  // namespace Loom
