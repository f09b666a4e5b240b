#include "log/line_scanner.h"

#include <string.h>

#include <algorithm>

#include "common/text.h"
#include "input/block_reader.h"
#include "input/bugreport_sections.h"
#include "log/frame_decoder.h"

namespace kovani_tool {
namespace {

// How much of the line before a block is kept, for a long-format header.
constexpr size_t kKeptLineMax = 256;
constexpr const char* kLongLine = "a line longer than 16 MiB, not decoded";

const char* Find(const char* from, const char* end, std::string_view needle) {
  if (from >= end) return nullptr;
  return static_cast<const char*>(
      memmem(from, static_cast<size_t>(end - from), needle.data(), needle.size()));
}

// Newlines in [from, end), 16 bytes at a time in vector lanes, each lane
// counting up to 255 before the lanes are added up.
uint64_t CountNewlines(const char* from, const char* end) {
  typedef unsigned char Lanes __attribute__((vector_size(16)));
  constexpr size_t kWidth = sizeof(Lanes);
  uint64_t count = 0;
  while (static_cast<size_t>(end - from) >= kWidth) {
    Lanes sum = {};
    for (int round = 0; round < 255 && static_cast<size_t>(end - from) >= kWidth; ++round) {
      Lanes bytes;
      memcpy(&bytes, from, kWidth);
      sum -= reinterpret_cast<Lanes>(bytes == '\n');  // a match is all ones: -1
      from += kWidth;
    }
    for (size_t lane = 0; lane < kWidth; ++lane) count += sum[lane];
  }
  for (; from < end; ++from) count += *from == '\n';
  return count;
}

// The year of "== dumpstate: YYYY-MM-DD HH:MM:SS" near a bug report's top.
int DumpstateYear(std::string_view head) {
  constexpr std::string_view kMarker = "== dumpstate: ";
  const size_t at = head.substr(0, 4096).find(kMarker);
  if (at == std::string_view::npos) return 0;
  const std::string_view year = head.substr(at + kMarker.size(), 5);
  return year.size() == 5 && year[4] == '-' ? static_cast<int>(ParseId(year.substr(0, 4))) : 0;
}

class Scanner {
 public:
  Scanner(size_t index, bool bug_report, LineSink* sink, SourceSummary* summary)
      : index_(index), bug_report_(bug_report), sink_(sink), summary_(summary) {}

  // cut: the block ends inside a line longer than the reader holds.
  void ScanBlock(std::string_view block, bool cut) {
    if (bug_report_ && counted_to_ == nullptr) summary_->dumpstate_year = DumpstateYear(block);
    block_ = block.data();
    counted_to_ = block_;
    const char* begin = block_;
    const char* const end = block_ + block.size();
    if (long_line_) {
      const char* newline = static_cast<const char*>(memchr(begin, '\n', end - begin));
      NoteLongPiece(begin, newline == nullptr ? end : newline);
      if (newline == nullptr) return;
      EndLongLine();
      begin = newline + 1;
    }
    const char* scan_end = end;
    if (cut) {
      const char* newline = static_cast<const char*>(memrchr(begin, '\n', end - begin));
      scan_end = newline == nullptr ? begin : newline + 1;
    }
    if (bug_report_) {
      ScanSections(begin, scan_end);
    } else {
      ScanRegion(begin, scan_end);
    }
    if (cut) StartLongLine(scan_end, end);
    LineNumberAt(scan_end);
    const char* last = scan_end;
    if (last > block_ && last[-1] == '\n') --last;
    const char* newline = static_cast<const char*>(memrchr(block_, '\n', last - block_));
    const char* last_line = newline == nullptr ? block_ : newline + 1;
    previous_line_.assign(last_line, std::min<size_t>(last - last_line, kKeptLineMax));
  }

  // After the last block: a long line the input ends in.
  void Finish() {
    if (long_line_) EndLongLine();
  }

 private:
  // Only the system log of a bug report is the library's log.
  void ScanSections(const char* begin, const char* end) {
    for (const char* at = begin; at < end;) {
      const char* header = std::string_view(at, end - at).substr(0, 7) == "------ "
                               ? at
                               : Find(at, end, "\n------ ");
      if (header != nullptr && *header == '\n') ++header;
      if (in_log_section_) ScanRegion(at, header == nullptr ? end : header);
      if (header == nullptr) return;
      const char* header_end = static_cast<const char*>(memchr(header, '\n', end - header));
      if (header_end == nullptr) header_end = end;
      in_log_section_ =
          SectionName(std::string_view(header, header_end - header)) == kSystemLogSection;
      summary_->log_section |= in_log_section_;
      at = header_end + 1;
    }
  }

  // Lines between begin and end (both at line starts) that hold a frame or a
  // console prefix. Both anchors hold a '[', which memchr finds fast.
  void ScanRegion(const char* begin, const char* end) {
    for (const char* at = begin; at < end;) {
      at = static_cast<const char*>(memchr(at, '[', end - at));
      if (at == nullptr) return;
      const bool frame = static_cast<size_t>(end - at) >= kFrameAnchor.size() &&
                         memcmp(at, kFrameAnchor.data(), kFrameAnchor.size()) == 0;
      const bool console = at - begin >= 3 && memcmp(at - 3, kConsoleAnchor.data(), 3) == 0;
      if (!frame && !console) {
        ++at;
        continue;
      }
      const char* newline = static_cast<const char*>(memrchr(begin, '\n', at - begin));
      const char* line_start = newline == nullptr ? begin : newline + 1;
      const char* line_end = static_cast<const char*>(memchr(at, '\n', end - at));
      if (line_end == nullptr) line_end = end;
      DecodeLine(line_start, line_end, at, frame);
      at = line_end + 1;
    }
  }

  // A line longer than the reader holds comes in pieces: it is not decoded,
  // and counted as unparsed when it holds an anchor of the library's.
  void StartLongLine(const char* from, const char* end) {
    long_line_ = true;
    long_line_ours_ = false;
    long_line_number_ = LineNumberAt(from);
    long_line_start_.assign(from, std::min<size_t>(end - from, kKeptLineMax));
    seam_.clear();
    NoteLongPiece(from, end);
  }

  void NoteLongPiece(const char* from, const char* end) {
    const std::string_view piece(from, end - from);
    const std::string seam = seam_ + std::string(piece.substr(0, kFrameAnchor.size()));
    for (const std::string_view text : {piece, std::string_view(seam)}) {
      long_line_ours_ |= text.find(kFrameAnchor) != std::string_view::npos ||
                         text.find(kConsoleAnchor) != std::string_view::npos;
    }
    seam_.assign(piece.substr(piece.size() - std::min(piece.size(), kFrameAnchor.size())));
  }

  void EndLongLine() {
    long_line_ = false;
    if (!long_line_ours_ || (bug_report_ && !in_log_section_)) return;
    UnparsedLine unparsed;
    unparsed.source = index_;
    unparsed.line_number = long_line_number_;
    unparsed.text = long_line_start_;
    unparsed.reason = kLongLine;
    sink_->OnUnparsed(unparsed);
  }

  // 1-based number of the line that starts at `at`.
  uint64_t LineNumberAt(const char* at) {
    lines_counted_ += CountNewlines(counted_to_, at);
    counted_to_ = at;
    return lines_counted_ + 1;
  }

  void Unparsed(const char* line_start, std::string_view line, const char* reason, bool console) {
    UnparsedLine unparsed;
    unparsed.source = index_;
    unparsed.line_number = LineNumberAt(line_start);
    unparsed.text = line;
    unparsed.reason = reason;
    unparsed.console = console;
    sink_->OnUnparsed(unparsed);
  }

  // The line before line_start: in this block, or the last one of the block
  // before.
  std::string_view PreviousLine(const char* line_start) const {
    if (line_start == block_) return previous_line_;
    const char* end = line_start - 1;
    const char* newline = static_cast<const char*>(memrchr(block_, '\n', end - block_));
    const char* start = newline == nullptr ? block_ : newline + 1;
    return std::string_view(start, end - start);
  }

  // anchor: the '[' of the frame's source file or of the console's "RIL[".
  void DecodeLine(const char* line_start, const char* line_end, const char* anchor, bool frame) {
    std::string_view line = WithoutCr(std::string_view(line_start, line_end - line_start));
    LibraryLine decoded;
    decoded.header = ParseHeader(line, &second_);
    // logcat -v process ends the line with "  (tag)".
    if (decoded.header.format == LogFormat::kProcess && line.back() == ')') {
      const size_t tag = line.rfind("  (");
      if (tag != std::string_view::npos && tag > static_cast<size_t>(anchor - line_start)) {
        line = line.substr(0, tag);
      }
    }
    if (decoded.header.format == LogFormat::kPlain) {
      ParseLongHeader(WithoutCr(PreviousLine(line_start)), &decoded.header);
    }
    const char* reason =
        decoder_.Decode(line, static_cast<size_t>(anchor - line_start), frame, &decoded);
    if (reason == FrameDecoder::kNotLibrary) return;
    if (reason != nullptr) {
      Unparsed(line_start, line, reason, decoded.console);
      return;
    }
    if (summary_->library_lines++ == 0) summary_->format = decoded.header.format;
    sink_->OnLine(decoded);
  }

  const size_t index_;
  const bool bug_report_;
  LineSink* const sink_;
  SourceSummary* const summary_;
  const char* block_ = nullptr;
  const char* counted_to_ = nullptr;
  uint64_t lines_counted_ = 0;
  std::string previous_line_;
  bool in_log_section_ = false;
  FrameDecoder decoder_;
  bool long_line_ = false;
  bool long_line_ours_ = false;
  uint64_t long_line_number_ = 0;
  std::string long_line_start_;
  std::string seam_;  // the end of the last piece, for an anchor cut in two
  SecondCache second_;
};

}  // namespace

bool DecodeInput(Input* input, size_t index, LineSink* sink, SourceSummary* summary,
                 std::string* error) {
  summary->name = input->name;
  summary->entry = input->entry;
  summary->kind = input->kind;
  Scanner scanner(index, input->kind != InputKind::kText, sink, summary);
  BlockReader reader(input->source.get());
  for (std::string_view block; reader.Next(&block);) scanner.ScanBlock(block, reader.cut());
  scanner.Finish();
  if (!reader.failed()) return true;
  *error = "cannot read " + Quoted(input->name) +
           (input->entry.empty() ? "" : " (" + input->entry + ")") + ": " + input->source->error();
  return false;
}

}  // namespace kovani_tool
