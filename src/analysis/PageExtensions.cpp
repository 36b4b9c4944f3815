// The packed page-extension list (see PageExtensions.h).
#include "analysis/PageExtensions.h"

#include "analysis/Text.h"

namespace analysis {

void PageExtensionSet::Assign(const std::vector<std::string_view>& entries) {
  size_t slots = kMinSlots;
  while (slots < 2 * entries.size()) slots *= 2;
  slots_.assign(slots, Entry{});
  mask_ = slots - 1;
  long_.clear();
  for (std::string_view e : entries) {
    if (e.size() > 8) {
      long_.emplace_back(e);
      continue;
    }
    // Packed as written, not lower-cased (see Assign's contract).
    const ExtensionKey key = ExtensionKey::Literal(e);
    size_t at = Slot(key.word);
    while (slots_[at].length != kEmpty &&
           !(slots_[at].word == key.word && slots_[at].length == key.length))
      at = (at + 1) & mask_;
    slots_[at].word = key.word;
    slots_[at].length = static_cast<uint8_t>(key.length);
  }
}

bool PageExtensionSet::ContainsLong(std::string_view ext) const {
  for (const std::string& listed : long_) {
    if (listed.size() != ext.size()) continue;
    size_t i = 0;
    while (i < ext.size() && LowerChar(ext[i]) == listed[i]) ++i;
    if (i == ext.size()) return true;
  }
  return false;
}

}  // namespace analysis
