// Helpers shared by the suites: temporary folders, small media files made
// with the ffmpeg executable, and generated sets (quorvel-setgen), cached in
// the build tree so a set is made once per build.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qv::test {

// A fresh folder under the system's temporary folder, removed on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

bool haveFFmpeg();

// Runs /usr/bin/ffmpeg with "-v error -y" and the given arguments; true on success.
bool ffmpeg(const std::vector<std::string>& args);

// A small clip made by ffmpeg: 64×36 pixels of one colour at 25 fps in
// H.264, with a 48 kHz sine unless `sound` is false; `extra` are output
// options. Parent folders are made.
bool makeClip(const std::filesystem::path& file, double seconds, bool sound = true,
              const std::vector<std::string>& extra = {});
// A sine of `seconds` at 48 kHz, in the format the file name says.
bool makeWav(const std::filesystem::path& file, double seconds);

// What ffmpeg's own loudness meter (the ebur128 filter, true peak on)
// reads of a file's sound: integrated LUFS and true peak in dBTP.
struct Loudness {
    double integrated = 0;
    double truePeak = 0;
};
std::optional<Loudness> measureLoudness(const std::filesystem::path& file);

// What ffprobe reads of `entries` ("stream=width,height", "format=duration")
// for the stream `stream` ("v:0", "a:0"): one value a line, the last line
// end left out; empty when it cannot read the file.
std::string ffprobe(const std::filesystem::path& file, const std::string& entries, const std::string& stream = "v:0");

// One field of the first stream of `kind` ("v", "a").
inline std::string probeField(const std::filesystem::path& file, const std::string& kind, const std::string& field) {
    return ffprobe(file, "stream=" + field, kind + ":0");
}

// A command run through the shell, its error output dropped: the exit status
// (-1 when it did not exit by itself), all it printed, and its last line.
struct ShellAnswer {
    int status = 0;
    std::string out;
    std::string lastLine;
};
ShellAnswer runShell(const std::string& command);

// The last line of `text`, trailing line ends left out.
std::string lastLine(const std::string& text);

void writeText(const std::filesystem::path& file, const std::string& text);
std::string readText(const std::filesystem::path& file);

// A generated set (preset, seed) in the fixtures folder; generated on first
// use. Empty path when the generator is missing or fails.
std::filesystem::path generatedSet(const std::string& preset, int seed);

}  // namespace qv::test
