// The configuration dump: JSON string escaping and code-page conversion, and the shape of the
// dump of a loaded World.
#include "startup/ConfigJson.h"

#include <gtest/gtest.h>

#include "startup/StartupTesting.h"

namespace startup {
namespace {

TEST(ConfigJson, StringsAreEscapedAndConvertedToUtf8) {
  EXPECT_EQ(JsonString("plain"), "\"plain\"");
  EXPECT_EQ(JsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(JsonString("\r\n\t"), "\"\\r\\n\\t\"");
  EXPECT_EQ(JsonString(std::string("a\0b\x1f\x7f", 5)), "\"a\\u0000b\\u001f\\u007f\"");
  EXPECT_EQ(JsonString("caf\xE9"), "\"caf\xC3\xA9\"");         // é
  EXPECT_EQ(JsonString("\x80"), "\"\xE2\x82\xAC\"");            // €
  EXPECT_EQ(JsonString("\x81\x9F\xFF"), "\"\xC2\x81\xC5\xB8\xC3\xBF\"");
}

TEST(ConfigJson, DumpHoldsTypedSettingsSitesAlertsAndCatalogue) {
  testing::TestWorld t;
  t.App("SETTINGS.INI", "INACTIVITYMINS=15\r\nAUTOARCHIVETIME=03:04:05\r\nEXTENSION1=HTM\r\n\r\n");
  t.App("TALLYO.INI", "[Caf\xE9 \"Site\"]\r\nTYPE=2\r\nALERTDNS=*.aol.com\r\n[Other]\r\n\r\n");
  LoadSites(t.w());
  LoadSettings(t.w());
  const std::string json = ConfigToJson(t.w());
  EXPECT_EQ(json.front(), '{');
  EXPECT_EQ(json.back(), '}');
  for (const char* part : {
           "\"INACTIVITYMINS\":15,", "\"REVERSEDNS\":true,", "\"AUTOARCHIVETIME\":\"03:04:05\"",
           "\"EMAILSUBJECT\":\"Message From Tallyo\"", "\"pageExtensions\":[\"htm\"]",
           "\"NAME\":\"Caf\xC3\xA9 \\\"Site\\\"\",\"LASTREADPOS\":0",
           "\"ALERTDNS\":[\"*.aol.com\"]", "\"NAME\":\"Other\"", "\"alerts\":[]",
           "{\"number\":110,\"description\":\"More than [value] active visitors\",\"value\":100,"
           "\"raise\":true,\"email\":false}",
           "\"number\":404,\"description\":\"HTTP Page [value] not found 404 error\","
           "\"value\":null",
           "\"searchEngineCount\":26", "[\"Google\",\".google.\"]"}) {
    EXPECT_NE(json.find(part), std::string::npos) << part;
  }
  // No doubled or dangling commas anywhere.
  EXPECT_EQ(json.find(",,"), std::string::npos);
  EXPECT_EQ(json.find(",]"), std::string::npos);
  EXPECT_EQ(json.find(",}"), std::string::npos);
  EXPECT_EQ(json.find("[,"), std::string::npos);
  EXPECT_EQ(json.find("{,"), std::string::npos);
}

}  // namespace
TEST(ConfigJson, PasswordsAreMaskedUnlessSecretsAreAsked) {
  testing::TestWorld t;
  t.App("SETTINGS.INI", "EMAILPASSWORD=mail-secret\r\nWEBPASSWORD=\r\n\r\n");
  t.App("TALLYO.INI", "[Shop]\r\nFTPPASSWORD=ftp-secret\r\nWEBPASSWORD=web-secret\r\n[Other]\r\n\r\n");
  LoadSites(t.w());
  LoadSettings(t.w());
  const std::string masked = ConfigToJson(t.w());
  for (const char* secret : {"mail-secret", "ftp-secret", "web-secret"})
    EXPECT_EQ(masked.find(secret), std::string::npos) << secret;
  EXPECT_NE(masked.find("\"EMAILPASSWORD\":\"********\""), std::string::npos);
  EXPECT_NE(masked.find("\"FTPPASSWORD\":\"********\""), std::string::npos);
  // A password that is not set stays visibly empty.
  EXPECT_NE(masked.find("\"WEBPASSWORD\":\"\""), std::string::npos);
  const std::string shown = ConfigToJson(t.w(), true);
  for (const char* secret : {"mail-secret", "ftp-secret", "web-secret"})
    EXPECT_NE(shown.find(secret), std::string::npos) << secret;
}

}  // namespace startup
