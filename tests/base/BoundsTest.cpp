// The readers of outside text hold what they read: numbers inside their
// range, nesting before parsing, and system errors in French words.
#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <string>

#include "base/Format.h"
#include "base/Json.h"
#include "base/SystemError.h"

namespace qv {
namespace {

using json::Json;

TEST(Bounds, NumbersAreHeldInsideTheirRangeAndOnlyNumbersCount) {
    const Json j = Json::parse(R"({"big": 1e300, "small": -1e12, "text": "5", "half": 3.5, "whole": 3.0})");
    EXPECT_EQ(json::number(j, "big", 7, {0, 100}), 100);
    EXPECT_EQ(json::number(j, "small", 7, {-100, 100}), -100);
    EXPECT_EQ(json::number(j, "text", 7, {0, 100}), 7);
    EXPECT_EQ(json::number(j, "missing", 7, {0, 100}), 7);
    EXPECT_EQ(json::integer(j, "half", 2, {1, 4}), 2);
    EXPECT_EQ(json::integer(j, "whole", 2, {1, 4}), 3);
    EXPECT_EQ(json::integer(j, "big", 2, {1, 4}), 4);
}

TEST(Bounds, NestingIsJudgedBeforeParsingAndStringsDoNotCount) {
    auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_TRUE(json::read(nested(limits::jsonDepth)));
    auto deep = json::read(nested(limits::jsonDepth + 1));
    ASSERT_FALSE(deep);
    EXPECT_EQ(deep.error().message, "imbrication trop profonde (plus de 64 niveaux)");
    // Brackets inside texts, escaped quotes included, are only letters.
    EXPECT_TRUE(json::read("{\"a\": \"" + std::string(200, '[') + "\\\"" + std::string(200, '{') + "\"}"));
    EXPECT_EQ(json::read("{\"a\": [1, 2").error().message, "pas du JSON lisible (fichier tronqué ou abîmé)");
}

TEST(Bounds, SystemErrorsNeverReachTheUserInTheSystemsLanguage) {
    EXPECT_EQ(systemMessage(ENOSPC), "plus de place sur le disque");
    EXPECT_EQ(systemMessage(EISDIR), "c'est un dossier");
    EXPECT_EQ(systemMessage(EROFS), "système de fichiers en lecture seule");
    EXPECT_EQ(systemMessage(4242), "erreur système 4242");
    EXPECT_EQ(systemMessage(std::make_error_code(std::errc::permission_denied)), "permission refusée");
    // Whatever the code, the words are ours and not strerror's.
    const std::string before = std::setlocale(LC_MESSAGES, nullptr);
    std::setlocale(LC_MESSAGES, "C");
    for (int code = 1; code < 134; ++code) EXPECT_NE(systemMessage(code), std::strerror(code)) << code;
    std::setlocale(LC_MESSAGES, before.c_str());
    EXPECT_EQ(Format::bytes(4ull << 30), "4,0 Go");
    EXPECT_EQ(Format::bytes(256ull << 20), "256 Mo");
    EXPECT_EQ(Format::bytes(900), "900 o");
}

}  // namespace
}  // namespace qv
