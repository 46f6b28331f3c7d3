// A throw-away home for one test: every per-user place (XDG folders, HOME,
// QUORVEL_PROJECTS_DIR) points into a fresh folder under /tmp, and the
// previous environment comes back when the test ends.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "support/Fixtures.h"

class TempHome {
public:
    TempHome() {
        char pattern[] = "/tmp/quorvel-test-XXXXXX";
        root_ = ::mkdtemp(pattern);
        set("HOME", root_ / "home");
        set("XDG_DATA_HOME", root_ / "data");
        set("XDG_CONFIG_HOME", root_ / "config");
        set("XDG_STATE_HOME", root_ / "state");
        set("QUORVEL_PROJECTS_DIR", root_ / "projects");
        std::filesystem::create_directories(root_ / "home");
    }

    ~TempHome() {
        for (auto& [name, value] : saved_) {
            if (value) ::setenv(name.c_str(), value->c_str(), 1);
            else ::unsetenv(name.c_str());
        }
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }

    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::filesystem::path& root() const { return root_; }

    // Folders are made for the file.
    static void writeText(const std::filesystem::path& file, const std::string& text) {
        std::filesystem::create_directories(file.parent_path());
        qv::test::writeText(file, text);
    }
    static std::string readText(const std::filesystem::path& file) { return qv::test::readText(file); }

private:
    void set(const char* name, const std::filesystem::path& value) {
        const char* old = ::getenv(name);
        saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
        ::setenv(name, value.c_str(), 1);
    }

    std::filesystem::path root_;
    std::map<std::string, std::optional<std::string>> saved_;
};
