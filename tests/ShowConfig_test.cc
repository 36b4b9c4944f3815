// tydbcreate-cli --show-config run as a separate process on the bundled demo and on a broken
// configuration: the output is one valid JSON object that matches the files, and the exit status
// tells a second copy and a bad option apart.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "platform/SingleInstance.h"

namespace {

namespace fs = std::filesystem;

// A small strict JSON reader: enough to prove the output is valid JSON (including well-formed
// UTF-8 in strings) and to look values up.
struct Json {
  enum Kind { Null, Bool, Number, String, Array, Object } kind = Null;
  bool b = false;
  double num = 0;
  std::string str;
  std::vector<Json> items;
  std::map<std::string, Json> members;

  const Json& operator[](const std::string& key) const {
    const auto it = members.find(key);
    if (kind != Object || it == members.end()) throw std::runtime_error("no key " + key);
    return it->second;
  }
  const Json& operator[](size_t i) const { return items.at(i); }
};

class JsonParser {
 public:
  explicit JsonParser(const std::string& text) : s_(text) {}
  Json ParseDocument() {
    Json v = Value();
    Blanks();
    if (p_ != s_.size()) Fail("trailing text");
    return v;
  }

 private:
  [[noreturn]] void Fail(const std::string& why) {
    throw std::runtime_error(why + " at offset " + std::to_string(p_));
  }
  void Blanks() {
    while (p_ < s_.size() && (s_[p_] == ' ' || s_[p_] == '\n' || s_[p_] == '\r' || s_[p_] == '\t')) ++p_;
  }
  bool Eat(char c) {
    Blanks();
    if (p_ < s_.size() && s_[p_] == c) {
      ++p_;
      return true;
    }
    return false;
  }
  void Expect(char c) {
    if (!Eat(c)) Fail(std::string("expected ") + c);
  }
  bool Word(const char* w) {
    const std::string word(w);
    if (s_.compare(p_, word.size(), word) != 0) return false;
    p_ += word.size();
    return true;
  }
  Json Value() {
    Blanks();
    if (p_ >= s_.size()) Fail("unexpected end");
    Json v;
    const char c = s_[p_];
    if (c == '{') {
      ++p_;
      v.kind = Json::Object;
      if (Eat('}')) return v;
      do {
        Blanks();
        std::string key = Str();
        Expect(':');
        if (v.members.count(key)) Fail("duplicate key " + key);
        v.members[key] = Value();
      } while (Eat(','));
      Expect('}');
    } else if (c == '[') {
      ++p_;
      v.kind = Json::Array;
      if (Eat(']')) return v;
      do v.items.push_back(Value());
      while (Eat(','));
      Expect(']');
    } else if (c == '"') {
      v.kind = Json::String;
      v.str = Str();
    } else if (Word("true")) {
      v.kind = Json::Bool;
      v.b = true;
    } else if (Word("false")) {
      v.kind = Json::Bool;
    } else if (Word("null")) {
    } else {
      size_t used = 0;
      const std::string rest = s_.substr(p_, 40);
      if (!(c == '-' || (c >= '0' && c <= '9'))) Fail("bad value");
      v.kind = Json::Number;
      v.num = std::stod(rest, &used);
      p_ += used;
    }
    return v;
  }
  std::string Str() {
    if (p_ >= s_.size() || s_[p_] != '"') Fail("expected string");
    ++p_;
    std::string out;
    while (true) {
      if (p_ >= s_.size()) Fail("unterminated string");
      const auto c = static_cast<unsigned char>(s_[p_]);
      if (c == '"') break;
      if (c < 0x20) Fail("raw control character");
      if (c == '\\') {
        const char e = s_.at(p_ + 1);
        p_ += 2;
        switch (e) {
          case '"': out += '"'; break;
          case '\\': out += '\\'; break;
          case '/': out += '/'; break;
          case 'n': out += '\n'; break;
          case 'r': out += '\r'; break;
          case 't': out += '\t'; break;
          case 'b': out += '\b'; break;
          case 'f': out += '\f'; break;
          case 'u': {
            const unsigned cp = std::stoul(s_.substr(p_, 4), nullptr, 16);
            p_ += 4;
            if (cp < 0x80) out += static_cast<char>(cp);
            else out += "?";  // the tests never look inside escaped non-ASCII
            break;
          }
          default: Fail("bad escape");
        }
        continue;
      }
      // Well-formed UTF-8: a lead byte and the right number of continuation bytes.
      int extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
      if (extra < 0 || (c == 0xC0 || c == 0xC1)) Fail("bad UTF-8 lead byte");
      out += s_[p_++];
      for (int i = 0; i < extra; ++i) {
        if (p_ >= s_.size() || (static_cast<unsigned char>(s_[p_]) & 0xC0) != 0x80) Fail("bad UTF-8");
        out += s_[p_++];
      }
    }
    ++p_;
    return out;
  }
  const std::string& s_;
  size_t p_ = 0;
};

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the front-end with `args` and TMPDIR (where its single-instance lock lives) set to
// `lockDir`.
Outcome RunCli(const std::string& args, const fs::path& lockDir) {
  tytest::TempDir scratch;
  const fs::path errFile = scratch.path() / "stderr.txt";
  const std::string cmd = "env TMPDIR='" + lockDir.string() + "' TALLYO_REGISTRY='" +
                          (scratch.path() / "none.ini").string() + "' '" TY_BIN_DIR
                          "/tydbcreate-cli' " + args + " 2>'" + errFile.string() + "'";
  Outcome o;
  FILE* pipe = ::popen(cmd.c_str(), "r");
  if (pipe == nullptr) return o;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) o.out.append(buf, n);
  const int raw = ::pclose(pipe);
  o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  o.err = tytest::ReadFile(errFile);
  return o;
}

// A copy of the demo's configuration (not its logs) in a temp folder, so runs never write
// into the source tree and never share a data folder.
void CopyDemoConfig(const fs::path& to) {
  const fs::path demo = tytest::SourceDir() / "examples" / "demo";
  for (const char* f : {"SETTINGS.INI", "TALLYO.INI", "EXTYPES.INI", "Data/Countries.txt"}) {
    tytest::WriteFile(to / f, tytest::ReadFile(demo / f));
  }
}

TEST(ShowConfig, DemoPrintsOneJsonObjectThatMatchesItsFiles) {
  tytest::TempDir app, lock;
  CopyDemoConfig(app.path());
  const Outcome o = RunCli("--show-config '" + app.str() + "' --now '2026-11-16 02:23:14'", lock.path());
  ASSERT_EQ(o.status, 0) << o.err;
  Json j;
  ASSERT_NO_THROW(j = JsonParser(o.out).ParseDocument()) << o.out.substr(0, 500);

  EXPECT_EQ(j["appFolder"].str, app.str());
  EXPECT_EQ(j["dataFolder"].str, app.str() + "Data/");
  EXPECT_TRUE(fs::is_directory(app.path() / "Data" / "Temp"));
  EXPECT_EQ(j["appTitle"].str, "Tallyo");
  EXPECT_EQ(j["startDate"].str, "2026-11-16");

  const Json& s = j["settings"];
  EXPECT_EQ(s["INACTIVITYMINS"].num, 15);
  EXPECT_FALSE(s["REVERSEDNS"].b);
  EXPECT_EQ(s["REVERSEDNS"].kind, Json::Bool);
  EXPECT_EQ(s["EMAILSUBJECT"].str, "Tallyo alert");
  EXPECT_EQ(s["EMAILEVERY"].num, 5);
  EXPECT_EQ(s["WEBACCESSPORT"].num, 8004);
  EXPECT_EQ(s["AUTOARCHIVETIME"].str, "03:30:00");
  EXPECT_EQ(s["WEBCOLGRIDHEADER"].str, "#D8E4F8");
  EXPECT_EQ(s["WEBCOLGRID"].str, "#808080");  // not in the file: the built-in colour
  ASSERT_EQ(j["pageExtensions"].items.size(), 11u);
  EXPECT_EQ(j["pageExtensions"][10].str, "pdf");
  ASSERT_EQ(j["dnsMasks"].items.size(), 50u);
  EXPECT_EQ(j["dnsMasks"][4].str, "*.cache.example.net");

  // One country per non-empty line of the file; the built-in engines (no engines file).
  const std::string countries = tytest::ReadFile(app.path() / "Data" / "Countries.txt");
  size_t lines = 0;
  for (size_t p = 0; (p = countries.find("\r\n", p)) != std::string::npos; p += 2) ++lines;
  EXPECT_EQ(j["countryCount"].num, static_cast<double>(lines));
  EXPECT_EQ(j["searchEngineCount"].num, 26);
  EXPECT_EQ(j["searchEngines"][8][0].str, "Google");

  const Json& sites = j["sites"];
  ASSERT_EQ(sites.items.size(), 3u);
  EXPECT_EQ(sites[0]["NAME"].str, "Demo Corporate");
  EXPECT_EQ(sites[0]["TYPE"].num, 0);
  EXPECT_EQ(sites[0]["FOLDER"].str, app.str() + "logs/w3c/");
  EXPECT_EQ(sites[0]["alerts"].items.size(), 2u);
  EXPECT_TRUE(sites[0]["alerts"][0]["ALERTENGINEALL"].b);
  EXPECT_EQ(sites[1]["NAME"].str, "Demo Shop");
  EXPECT_EQ(sites[1]["TYPE"].num, 2);
  EXPECT_TRUE(sites[1]["UNIX"].b);
  EXPECT_EQ(sites[1]["alerts"][0]["ALERT"].str, "Default (All Visitors)");
  EXPECT_EQ(sites[1]["alerts"][0]["ALERTDNS"].items.size(), 2u);
  EXPECT_TRUE(sites[2]["FTP"].b);
  // The sites file's last item (TYPE=0 before the final empty line) counts: the file ends
  // with an empty line.
  EXPECT_EQ(sites[2]["TYPE"].num, 0);

  const Json& ex = j["exceptionTypes"];
  ASSERT_EQ(ex.items.size(), 30u);
  EXPECT_EQ(ex[0]["number"].num, 110);
  EXPECT_EQ(ex[28]["number"].num, 131);
  EXPECT_EQ(ex[28]["value"].num, 40);
  EXPECT_EQ(ex[29]["value"].str, "setup.zip");
  EXPECT_EQ(ex[13]["value"].kind, Json::Null);
}

TEST(ShowConfig, BrokenConfigurationStillPrintsWhatWasLoaded) {
  tytest::TempDir app, lock;
  fs::create_directories(app.path() / "SETTINGS.INI");  // a folder where the file should be
  std::string sites = "[Caf\xE9 \x93Quoted\x94]\r\nTYPE=1\r\nDOMAIN=a\"b\\c\r\n";
  sites += std::string("EXCLUDE=x\0y\x01\r\n", 14);
  sites += "[Second]\r\nFTP=sometimes\r\n[Never]\r\n\r\n";
  tytest::WriteFile(app.path() / "TALLYO.INI", sites);
  tytest::WriteFile(app.path() / "Data" / "Countries.txt", "AU,Australia\r\nbroken\r\n");
  const Outcome o = RunCli("--show-config '" + app.path().string() + "'", lock.path());
  ASSERT_EQ(o.status, 0) << o.err;
  Json j;
  ASSERT_NO_THROW(j = JsonParser(o.out).ParseDocument()) << o.out.substr(0, 500);
  ASSERT_EQ(j["sites"].items.size(), 2u);  // the bad flag ended the loader in "Second"
  EXPECT_EQ(j["sites"][0]["NAME"].str, "Caf\xC3\xA9 \xE2\x80\x9CQuoted\xE2\x80\x9D");
  EXPECT_EQ(j["sites"][0]["DOMAIN"].str, "a\"b\\c");
  EXPECT_EQ(j["pageExtensions"].items.size(), 18u);
  EXPECT_EQ(j["countryCount"].num, 1);
  EXPECT_EQ(j["exceptionTypes"].items.size(), 28u);
}

TEST(ShowConfig, SecondCopyAndBadClockEndWithTheirOwnStatus) {
  tytest::TempDir app, lock;
  {
    auto held = platform::SingleInstance::Acquire("tydbcreate", lock.path());
    ASSERT_NE(held, nullptr);
    const Outcome o = RunCli("--show-config '" + app.str() + "'", lock.path());
    EXPECT_EQ(o.status, 3);
    EXPECT_EQ(o.out, "");
    EXPECT_NE(o.err.find("another copy"), std::string::npos) << o.err;
    EXPECT_FALSE(fs::exists(app.path() / "Data"));  // nothing was done
  }
  const Outcome bad = RunCli("--show-config '" + app.str() + "' --now yesterday", lock.path());
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("--now"), std::string::npos);

  const Outcome help = RunCli("--help", lock.path());
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--show-config"), std::string::npos);
  EXPECT_NE(help.out.find("--now"), std::string::npos);
}

}  // namespace
