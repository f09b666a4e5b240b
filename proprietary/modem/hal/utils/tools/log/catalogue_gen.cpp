// Writes the catalogue of the library's log messages from its preprocessed
// sources: every call of the two sinks, as (level, function, body format).
// The tool's decoder matches logs against it and the tests check it against
// the golden transcripts, so neither can fall behind the library.
//
// Usage: kovani_catalogue_gen OUTPUT PREPROCESSED_SOURCE...
// OUTPUT holds one line per message, in source order, grouped by function:
//   KOVANI_MESSAGE(E, "function", "format")   a line with the frame
//   KOVANI_BARE(D, "format")                  a line without it
// A helper that logs under a name its callers pass in (__func__) has its
// lines listed under each such caller, where it calls the helper.

#include <stdio.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Message {
  char level;  // 'E' or 'D'
  std::string function;
  std::string format;  // as written in the source, escapes kept
};

bool Fail(const std::string& why) {
  fprintf(stderr, "kovani_catalogue_gen: %s\n", why.c_str());
  return false;
}

class Catalogue {
 public:
  // One preprocessed source: a function starts on a line of its own at the
  // left margin, and each sink call stands on one line.
  void Read(const std::string& text) {
    static const std::regex call(
        R"re(kovani_utils_syslog_(err|dbg)\(((?:\s*"(?:[^"\\]|\\.)*")*)(.*?)\);)re");
    static const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
    static const std::regex helper_call(R"re(\b(\w+)\(__func__\b)re");
    std::istringstream lines(text);
    std::string function;
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && isalpha(static_cast<unsigned char>(line[0])) &&
          line.find('(') != std::string::npos && line.back() != ';') {
        const std::string head = line.substr(0, line.find('('));
        function = head.substr(head.find_last_of(" *&") + 1);
      }
      for (std::sregex_iterator c(line.begin(), line.end(), helper_call), end; c != end; ++c) {
        const auto helper = helpers_.find((*c)[1]);
        if (helper == helpers_.end()) continue;
        for (const Message& m : helper->second) Add({m.level, function, m.format});
        called_.insert(helper->first);
      }
      for (std::sregex_iterator c(line.begin(), line.end(), call), end; c != end; ++c) {
        const char level = (*c)[1] == "err" ? 'E' : 'D';
        std::vector<std::string> texts;
        const std::string leading = (*c)[2], rest = (*c)[3];
        for (std::sregex_iterator l(leading.begin(), leading.end(), literal); l != end; ++l) {
          texts.push_back((*l)[1]);
        }
        if (texts.empty() || texts[0].find("[%s:%d] %s: ") == std::string::npos) {
          // A bare line, its format an argument: an announcement.
          for (std::sregex_iterator l(rest.begin(), rest.end(), literal); l != end; ++l) {
            Add({level, "", (*l)[1]});
          }
          continue;
        }
        std::string format;
        for (size_t i = 1; i < texts.size(); ++i) format += texts[i];
        if (rest.find("__func__") != std::string::npos) {
          Add({level, function, format});
        } else {
          helpers_[function].push_back({level, "", format});
        }
      }
    }
  }

  bool Write(const char* path) const {
    for (const auto& [helper, messages] : helpers_) {
      if (called_.count(helper) == 0) {
        return Fail("the log lines of " + helper + " carry a name passed in, and no function " +
                    "calls it with its own (__func__)");
      }
    }
    if (order_.empty()) return Fail("no log call found");
    std::ofstream out(path);
    out << "// Made by kovani_catalogue_gen from the library's sources.\n";
    for (const std::string& function : order_) {
      for (const Message& m : by_function_.at(function)) {
        if (function.empty()) {
          out << "KOVANI_BARE(" << m.level << ", \"" << m.format << "\")\n";
        } else {
          out << "KOVANI_MESSAGE(" << m.level << ", \"" << function << "\", \"" << m.format
              << "\")\n";
        }
      }
    }
    out.close();
    return out ? true : Fail(std::string("cannot write ") + path);
  }

 private:
  void Add(const Message& m) {
    if (!seen_.insert({m.level, m.function, m.format}).second) return;
    auto [group, added] = by_function_.try_emplace(m.function);
    if (added) order_.push_back(m.function);
    group->second.push_back(m);
  }

  std::map<std::string, std::vector<Message>> helpers_;
  std::set<std::string> called_;
  std::set<std::tuple<char, std::string, std::string>> seen_;
  std::map<std::string, std::vector<Message>> by_function_;
  std::vector<std::string> order_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: kovani_catalogue_gen OUTPUT PREPROCESSED_SOURCE...\n");
    return 2;
  }
  Catalogue catalogue;
  for (int i = 2; i < argc; ++i) {
    std::ifstream in(argv[i]);
    std::stringstream text;
    text << in.rdbuf();
    if (!in) {
      Fail(std::string("cannot read ") + argv[i]);
      return 1;
    }
    catalogue.Read(text.str());
  }
  return catalogue.Write(argv[1]) ? 0 : 1;
}
