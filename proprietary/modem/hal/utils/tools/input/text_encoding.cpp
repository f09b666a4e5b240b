#include "input/text_encoding.h"

#include <string.h>

#include <algorithm>

namespace kovani_tool {
namespace {

constexpr size_t kRawChunk = 1u << 15;
constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(char32_t c, std::string* out) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (c >> 6)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (c >> 12)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (c >> 18)));
    out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

bool IsHigh(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLow(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Turns UTF-16 into UTF-8 as its bytes arrive, in any pieces.
class Utf16Decoder {
 public:
  explicit Utf16Decoder(bool big_endian) : big_endian_(big_endian) {}

  void Add(std::string_view bytes, std::string* out) {
    for (const char byte : bytes) {
      if (!odd_) {
        first_ = static_cast<unsigned char>(byte);
        odd_ = true;
        continue;
      }
      odd_ = false;
      const char32_t second = static_cast<unsigned char>(byte);
      Unit(big_endian_ ? (first_ << 8 | second) : (second << 8 | first_), out);
    }
  }

  // The text's end: what is left half-read is not a character.
  void Finish(std::string* out) {
    if (high_ != 0 || odd_) AppendUtf8(kReplacement, out);
    high_ = 0;
    odd_ = false;
  }

 private:
  void Unit(char32_t unit, std::string* out) {
    if (high_ != 0 && IsLow(unit)) {
      AppendUtf8(0x10000 + ((high_ - 0xD800) << 10) + (unit - 0xDC00), out);
      high_ = 0;
      return;
    }
    if (high_ != 0) AppendUtf8(kReplacement, out);
    high_ = 0;
    if (IsHigh(unit)) {
      high_ = unit;
    } else {
      AppendUtf8(IsLow(unit) ? kReplacement : unit, out);
    }
  }

  bool big_endian_;
  bool odd_ = false;
  char32_t first_ = 0;
  char32_t high_ = 0;
};

size_t MarkSize(TextEncoding encoding) {
  return encoding == TextEncoding::kUtf8Bom ? 3 : encoding == TextEncoding::kUtf8 ? 0 : 2;
}

// The text after its mark, as UTF-8.
class DecodedSource : public ByteSource {
 public:
  DecodedSource(TextEncoding encoding, std::unique_ptr<ByteSource> raw)
      : utf16_(encoding != TextEncoding::kUtf8Bom),
        decoder_(encoding == TextEncoding::kUtf16Be),
        mark_left_(MarkSize(encoding)),
        raw_(std::move(raw)) {}

  ssize_t Read(char* buf, size_t size) override {
    while (decoded_.size() == taken_ && !ended_) {
      if (!Fill()) return -1;
    }
    const size_t n = std::min(size, decoded_.size() - taken_);
    memcpy(buf, decoded_.data() + taken_, n);
    taken_ += n;
    return static_cast<ssize_t>(n);
  }

 private:
  bool Fill() {
    char chunk[kRawChunk];
    const ssize_t n = raw_->Read(chunk, sizeof(chunk));
    if (n < 0) {
      error_ = raw_->error();
      return false;
    }
    std::string_view bytes(chunk, static_cast<size_t>(n));
    const size_t mark = std::min(mark_left_, bytes.size());
    bytes.remove_prefix(mark);
    mark_left_ -= mark;
    decoded_.clear();
    taken_ = 0;
    if (!utf16_) {
      decoded_.assign(bytes);
    } else if (n == 0) {
      decoder_.Finish(&decoded_);
    } else {
      decoder_.Add(bytes, &decoded_);
    }
    ended_ = n == 0;
    return true;
  }

  bool utf16_;
  Utf16Decoder decoder_;
  size_t mark_left_;
  std::unique_ptr<ByteSource> raw_;
  std::string decoded_;
  size_t taken_ = 0;
  bool ended_ = false;
};

}  // namespace

TextEncoding EncodingOf(std::string_view head) {
  if (head.substr(0, 3) == "\xEF\xBB\xBF") return TextEncoding::kUtf8Bom;
  if (head.substr(0, 2) == "\xFF\xFE") return TextEncoding::kUtf16Le;
  if (head.substr(0, 2) == "\xFE\xFF") return TextEncoding::kUtf16Be;
  return TextEncoding::kUtf8;
}

const char* EncodingName(TextEncoding encoding) {
  switch (encoding) {
    case TextEncoding::kUtf16Le:
      return "UTF-16LE";
    case TextEncoding::kUtf16Be:
      return "UTF-16BE";
    case TextEncoding::kUtf8Bom:
      return "UTF-8 with a byte-order mark";
    default:
      return "";
  }
}

std::string DecodedHead(TextEncoding encoding, std::string_view head) {
  head.remove_prefix(std::min(MarkSize(encoding), head.size()));
  if (encoding != TextEncoding::kUtf16Le && encoding != TextEncoding::kUtf16Be) {
    return std::string(head);
  }
  std::string text;
  // A head cut inside a character loses only that character.
  Utf16Decoder(encoding == TextEncoding::kUtf16Be).Add(head, &text);
  return text;
}

std::unique_ptr<ByteSource> DecodingSource(TextEncoding encoding,
                                           std::unique_ptr<ByteSource> raw) {
  if (encoding == TextEncoding::kUtf8) return raw;
  return std::make_unique<DecodedSource>(encoding, std::move(raw));
}

}  // namespace kovani_tool
