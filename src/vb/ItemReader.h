// The run-time's delimited input ("Input #") over a file or a byte buffer: the configuration
// files are read as a stream of comma- and line-delimited items.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace vb {

// Items end at a comma or a line end (CR LF, CR, or LF). Blanks and tabs at both ends of an item
// are dropped; inside it they are kept. An item that begins with a double quote runs to the
// closing quote (the quotes are removed, commas and line ends inside are kept); anything after the
// closing quote up to the next delimiter is dropped. Reading an item consumes its delimiter, so
// after the last item of a file that ends with a line end Eof() is true.
//
// Further rules, chosen to match the run-time's sequential input and documented here:
//   - An empty line, or nothing between two commas, is an empty item "".
//   - A quote that is never closed runs the item to the end of the input.
//   - A byte 26 (Ctrl-Z, the old end-of-file mark) ends the input: it and everything after it
//     are never read.
//   - NUL and every other byte are ordinary characters of an item.
//   - A quote that does not begin an item is an ordinary character.
//
// The loaders use:  item = ReadItem(); while (!Eof()) { Process(item); item = ReadItem(); }
// so the last item of a file is never processed. This is deliberate and must be kept: a file
// "A=1\r\nB=2\r\n" processes only A=1; "A=1\r\nB=2\r\n\r\n" processes both.
class ItemReader {
 public:
  // Reads the whole file. Returns nullopt when it cannot be opened or read.
  static std::optional<ItemReader> Open(const std::filesystem::path& p);

  explicit ItemReader(std::string bytes);

  // True when every byte has been consumed.
  bool Eof() const { return pos_ >= bytes_.size(); }

  // The next item (see the class comment). At end of input throws Failure(62)
  // "Input past end of file". Never hangs: every call consumes at least one byte.
  std::string ReadItem();

 private:
  std::string bytes_;
  std::size_t pos_ = 0;
};

}  // namespace vb
