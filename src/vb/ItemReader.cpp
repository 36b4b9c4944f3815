// Comma- and line-delimited item input over a byte buffer (see ItemReader.h for the rules).
#include "vb/ItemReader.h"

#include <fstream>
#include <iterator>
#include <utility>

#include "vb/Failure.h"

namespace vb {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::optional<ItemReader> ItemReader::Open(const std::filesystem::path& p) {
  std::error_code ec;
  if (std::filesystem::is_directory(p, ec)) return std::nullopt;
  std::ifstream in(p, std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return ItemReader(std::move(bytes));
}

ItemReader::ItemReader(std::string bytes) : bytes_(std::move(bytes)) {
  // The old end-of-file mark ends the input, as the run-time's sequential input does.
  const size_t mark = bytes_.find('\x1A');
  if (mark != std::string::npos) bytes_.resize(mark);
}

std::string ItemReader::ReadItem() {
  if (Eof()) Raise(kPastEnd);
  const size_t n = bytes_.size();
  while (pos_ < n && IsBlank(bytes_[pos_])) ++pos_;

  std::string item;
  if (pos_ < n && bytes_[pos_] == '"') {
    ++pos_;
    const size_t close = bytes_.find('"', pos_);
    if (close == std::string::npos) {
      item.assign(bytes_, pos_, std::string::npos);
      pos_ = n;
      return item;
    }
    item.assign(bytes_, pos_, close - pos_);
    pos_ = close + 1;
    // Whatever follows the closing quote up to the delimiter is dropped.
    const size_t delim = bytes_.find_first_of(",\r\n", pos_);
    pos_ = delim == std::string::npos ? n : delim;
  } else {
    const size_t start = pos_;
    const size_t delim = bytes_.find_first_of(",\r\n", pos_);
    pos_ = delim == std::string::npos ? n : delim;
    size_t end = pos_;
    while (end > start && IsBlank(bytes_[end - 1])) --end;
    item.assign(bytes_, start, end - start);
  }

  // Consume the delimiter: a comma, CR LF, CR, or LF.
  if (pos_ < n) {
    const char c = bytes_[pos_++];
    if (c == '\r' && pos_ < n && bytes_[pos_] == '\n') ++pos_;
  }
  return item;
}

}  // namespace vb
