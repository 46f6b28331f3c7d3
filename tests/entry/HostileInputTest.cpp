// Bad files, bad paths and bad arguments against the real `--cli` executable,
// one row per case with the outcome it must give. Every case runs in a child
// process limited to 4 GB of address space and a minute of time: an abort,
// a signal, a hang or an XML that a strict parser refuses fails the row.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fcntl.h>
#include <functional>

#include "support/Fixtures.h"
#include "support/XmemlCheck.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool addressSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool addressSanitized = true;
#else
constexpr bool addressSanitized = false;
#endif
#else
constexpr bool addressSanitized = false;
#endif

struct ChildRun {
    bool finished = false;  // ended by itself within the time allowed
    bool signalled = false;
    int status = -1;
    std::string out, err;
};

// The executable with its address space held to 4 GB (AddressSanitizer's
// shadow memory needs more, so a sanitised build runs without the limit).
ChildRun runProgram(const std::vector<std::string>& args, const fs::path& scratch) {
    fs::path outFile = scratch / "stdout.txt", errFile = scratch / "stderr.txt";
    pid_t pid = fork();
    if (pid == 0) {
        int o = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int e = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int n = open("/dev/null", O_RDONLY);
        dup2(o, 1);
        dup2(e, 2);
        dup2(n, 0);
        if (!addressSanitized) {
            rlimit limit{4000000ull * 1024, 4000000ull * 1024};
            setrlimit(RLIMIT_AS, &limit);
        }
        // The journal of each case goes into its own folder, never the user's.
        setenv("XDG_STATE_HOME", (scratch / "etat").c_str(), 1);
        std::vector<char*> argv;
        std::string exe = QUORVEL_EXE;
        argv.push_back(exe.data());
        std::vector<std::string> copy = args;
        for (auto& a : copy) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(exe.c_str(), argv.data());
        _exit(127);
    }
    ChildRun r;
    int status = 0;
    // The child's end is awaited as an event; a minute without it is a hang.
    const int ending = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    pollfd watch{ending, POLLIN, 0};
    int ready;
    do ready = ending >= 0 ? poll(&watch, 1, 60000) : -1;
    while (ready < 0 && errno == EINTR);
    if (ending >= 0) close(ending);
    if (ending >= 0 && ready == 0) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        r.out = test::readText(outFile);
        r.err = test::readText(errFile);
        return r;
    }
    waitpid(pid, &status, 0);
    r.finished = true;
    r.signalled = WIFSIGNALED(status);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = test::readText(outFile);
    r.err = test::readText(errFile);
    return r;
}

// What every written timeline must hold whatever its input.
void expectSoundDocument(const fs::path& file) {
    const auto problems = test::xmemlProblems(test::readText(file));
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
}

struct Place {
    fs::path dir, set, out;
};

// Overwrites 32-bit fields of the named boxes of an MP4 (version 0 boxes).
void patchBoxes(const fs::path& f, const std::string& box, size_t offset, uint32_t value) {
    std::string bytes = test::readText(f);
    for (size_t at = bytes.find(box); at != std::string::npos; at = bytes.find(box, at + 4))
        for (int k = 0; k < 4; ++k) bytes[at + 4 + offset + k] = static_cast<char>(value >> (24 - 8 * k));
    test::writeText(f, bytes);
}

struct Case {
    const char* name;
    std::function<void(const Place&)> make;  // adds the hostile part to a good set
    std::vector<std::string> args;           // "{set}", "{out}", "{dir}" stand for the paths
    int status;
    std::vector<std::string> stdoutHas, stderrHas;
    bool writesXml;
    std::function<void(const Place&, const ChildRun&)> check = nullptr;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

const std::vector<std::string> plain = {"--cli", "{set}", "{out}"};

const std::vector<Case>& cases() {
    static const std::vector<Case> table = {
        // Memory bounded by what a file really holds.
        {"sound starting at 10^6 s",
         [](const Place& p) {
             fs::create_directories(p.set / "Son 2");
             test::ffmpeg({"-f", "lavfi", "-i", "sine=f=300:r=48000:d=5", "-output_ts_offset", "1000000", "-c:a",
                           "aac", (p.set / "Son 2" / "tard.m4a").string()});
             test::makeClip(p.set / "Cam 2" / "tard.mkv", 5, true, {"-itsoffset", "1000000"});
         },
         plain, 0, {"[SON] Son 2 : 1 fichiers, 5 s\n"}, {}, true},
        {"WAV claiming 1 Hz",
         [](const Place& p) {
             fs::path f = p.set / "Son 2" / "un hertz.wav";
             test::makeWav(f, 17);
             std::string b = test::readText(f);
             size_t fmt = b.find("fmt ");
             for (size_t at : {fmt + 12, fmt + 16})
                 for (int k = 0; k < 4; ++k) b[at + k] = k == 0 ? char(at == fmt + 12 ? 1 : 2) : '\0';
             test::writeText(f, b);
         },
         plain, 0, {"[SON] Son 2 : 0 fichiers, 0 s\n"},
         {"Fichier illisible : Son 2/un hertz.wav (fréquence ou nombre de canaux hors normes)\n"}, true},
        {"MP4 claiming 50 days",
         [](const Place& p) {
             fs::path f = p.set / "Cam 2" / "cinquante jours.mp4";
             test::makeClip(f, 11);
             patchBoxes(f, "mvhd", 16, 1000u * 50 * 86400);
             patchBoxes(f, "mdhd", 16, 0xFFFFFFF0u);
         },
         plain, 0, {"[CAM] Cam 2 : 1 fichiers, 11 s\n"}, {}, true},

        // Only plain local media is opened.
        {"HLS playlist named .mp4 pointing at a FIFO, /dev/urandom and itself",
         [](const Place& p) {
             fs::create_directories(p.set / "Cam 2");
             mkfifo((p.dir / "tube").c_str(), 0600);
             test::writeText(p.set / "Cam 2" / "liste.mp4",
                             "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\n" + (p.dir / "tube").string() +
                                 "\n#EXTINF:10,\n/dev/urandom\n#EXTINF:10,\nliste.mp4\n#EXT-X-ENDLIST\n");
         },
         plain, 0, {"[CAM] Cam 2 : 0 fichiers, 0 s\n"},
         {"Fichier illisible : Cam 2/liste.mp4 (pas un fichier vidéo ou audio)\n"}, true},
        {"ffconcat list named .mov",
         [](const Place& p) {
             fs::create_directories(p.set / "Cam 2");
             mkfifo((p.dir / "tube").c_str(), 0600);
             test::writeText(p.set / "Cam 2" / "liste.mov", "ffconcat version 1.0\nfile '" + (p.dir / "tube").string() +
                                                                "'\nfile '/dev/urandom'\nfile 'liste.mov'\n");
         },
         plain, 0, {}, {"Fichier illisible : Cam 2/liste.mov (pas un fichier vidéo ou audio)\n"}, true},
        {"FIFO and device named like media",
         [](const Place& p) {
             fs::create_directories(p.set / "Son 2");
             mkfifo((p.set / "Son 2" / "tube.wav").c_str(), 0600);
             fs::create_symlink("/dev/urandom", p.set / "Son 2" / "hasard.mov");
         },
         plain, 0, {},
         {"Fichier illisible : Son 2/hasard.mov (pas un fichier ordinaire)\n",
          "Fichier illisible : Son 2/tube.wav (pas un fichier ordinaire)\n"},
         true},

        // Every refused file is named, and a camera stays a camera.
        {"truncated, empty and text files in a camera folder",
         [](const Place& p) {
             test::makeClip(p.dir / "entier.mp4", 3);
             std::string whole = test::readText(p.dir / "entier.mp4");
             fs::create_directories(p.set / "Cam 3");
             test::writeText(p.set / "Cam 3" / "clip 1.mp4", whole.substr(0, whole.size() / 2));
             test::writeText(p.set / "Cam 3" / "clip 2.mp4", "");
             test::writeText(p.set / "Cam 3" / "clip 3.mp4", "Ceci n'est pas une vidéo.\n");
         },
         plain, 0, {"[CAM] Cam 3 : 0 fichiers, 0 s\n"},
         {"Fichier illisible : Cam 3/clip 1.mp4 (fichier tronqué)\n",
          "Fichier illisible : Cam 3/clip 2.mp4 (fichier vide)\n",
          "Fichier illisible : Cam 3/clip 3.mp4 (pas un fichier vidéo ou audio)\n"},
         true},
        {"unreadable sub-folder",
         [](const Place& p) {
             if (geteuid() == 0) {  // root reads any folder; a link to itself it cannot
                 fs::create_symlink("Cam 5", p.set / "Cam 5");
             } else {
                 test::makeClip(p.set / "Cam 5" / "a.mp4", 3);
                 fs::permissions(p.set / "Cam 5", fs::perms::none);
             }
         },
         plain, 0, {}, {geteuid() == 0 ? "Dossier illisible : Cam 5 (trop de liens symboliques)\n"
                                       : "Dossier illisible : Cam 5 (accès refusé)\n"},
         true},
        {"link back into the set counts nothing twice",
         [](const Place& p) { fs::create_symlink(".", p.set / "Cam 3"); },
         plain, 0, {"[CAM] Cam 1 : 1 fichiers", "[SON] Son 1 : 1 fichiers"}, {}, true,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("Cam 3"), std::string::npos) << r.out; }},

        // Well-formed output whatever the names.
        {"names with invalid UTF-8, control characters, markup and newlines",
         [](const Place& p) {
             fs::path folder = p.set / "Cam <2> & \"x\"";
             fs::create_directories(folder);
             fs::copy_file(test::generatedSet("tiny", 3) / "Cam 2" / "clip 1.mp4", folder / "a\xff\x01<&>\nb.mp4");
         },
         plain, 0, {"[CAM] Cam <2> & \"x\" : 1 fichiers, 11 s\n", "a\\xff\\x01<&>\\nb.mp4"}, {}, true,
         [](const Place& p, const ChildRun&) {
             std::string xml = test::readText(p.out);
             EXPECT_NE(xml.find("a\xEF\xBF\xBD\xEF\xBF\xBD&lt;&amp;&gt;\xEF\xBF\xBD" "b.mp4"), std::string::npos);
             EXPECT_NE(xml.find("Cam%20%3C2%3E%20&amp;%20%22x%22/a%FF%01%3C&amp;%3E%0Ab.mp4"), std::string::npos);
         }},
        {"cuts closer than a frame merge",
         [](const Place&) {},
         {"--cli", "{set}", "{out}", "--montage", "0:1,4:1,4.01:1,4.02:1,8:1"}, 0, {"Montage : 5 coupes"}, {}, true},

        // Paths are judged before any work.
        {"output is a media file of the set",
         [](const Place&) {}, {"--cli", "{set}", "{set}/Cam 1/clip 1.mp4"}, 1, {},
         {"Erreur d'écriture : {set}/Cam 1/clip 1.mp4 n'est pas un fichier XML, il n'est pas remplacé\n"}, false,
         [](const Place& p, const ChildRun&) { EXPECT_GT(fs::file_size(p.set / "Cam 1" / "clip 1.mp4"), 10000u); }},
        {"output is an existing document that is not XML",
         [](const Place& p) { test::writeText(p.dir / "notes.txt", "mes notes"); },
         {"--cli", "{set}", "{dir}/notes.txt"}, 1, {},
         {"Erreur d'écriture : {dir}/notes.txt n'est pas un fichier XML, il n'est pas remplacé\n"}, false,
         [](const Place& p, const ChildRun&) { EXPECT_EQ(test::readText(p.dir / "notes.txt"), "mes notes"); }},
        {"output is an older XML, replaced",
         [](const Place& p) { test::writeText(p.out, "<?xml version=\"1.0\"?><vieux/>"); }, plain, 0, {}, {}, true},
        {"output in a folder that does not exist",
         [](const Place&) {}, {"--cli", "{set}", "{dir}/manque/out.xml"}, 1,
         {"Erreur d'écriture : fichier ou dossier introuvable\n"}, {}, false,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("Synchro"), std::string::npos); }},
        {"empty set path", [](const Place&) {}, {"--cli", "", "{out}"}, 1,
         {"Usage : Quorvel --cli <dossier du set> <sortie.xml>\n"}, {}, false},
        {"set folder that does not exist", [](const Place&) {}, {"--cli", "{dir}/nulle part", "{out}"}, 1, {},
         {"Dossier du set introuvable : {dir}/nulle part\n"}, false},
        {"a file as set folder", [](const Place&) {}, {"--cli", "{set}/Son 1/prise 1.wav", "{out}"}, 1, {},
         {"Dossier du set introuvable : {set}/Son 1/prise 1.wav\n"}, false},

        // Arguments that make no sense are said.
        {"options before the set folder", [](const Place&) {}, {"--cli", "--montage", "0:1", "{set}", "{out}"}, 0,
         {"[CAM] Cam 1 : 1 fichiers", "Montage : 1 coupes"}, {}, true},
        {"--cadrage nan", [](const Place&) {}, {"--cli", "{set}", "{out}", "--montage", "0:1", "--cadrage", "nan"},
         0, {}, {"Valeur de --cadrage ignorée : nan (un nombre est attendu)\n"}, true},
        {"--range nan-10", [](const Place&) {}, {"--cli", "{set}", "{out}", "--montage", "0:1", "--range", "nan-10"},
         0, {"plage 0-"}, {"Plage de --range ignorée : « nan-10 »"}, true},
        {"bad --montage pieces",
         [](const Place&) {},
         {"--cli", "{set}", "{out}", "--montage", "0:1,x,2:,:3,1e400:1,4:99999999999,5:1.5,inf:1"}, 0,
         {"Montage : 1 coupes"},
         {"Coupe de --montage ignorée : « x »", "Coupe de --montage ignorée : « 2: »",
          "Coupe de --montage ignorée : « :3 »", "Coupe de --montage ignorée : « 1e400:1 »",
          "Coupe de --montage ignorée : « 4:99999999999 »", "Coupe de --montage ignorée : « 5:1.5 »",
          "Coupe de --montage ignorée : « inf:1 »"},
         true},
        {"unknown option, option without value, unknown format",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--montag", "0:1", "--format", "3:2", "--range"}, 0, {},
         {"Option inconnue ignorée : --montag\n", "Argument en trop ignoré : 0:1\n",
          "Option sans valeur ignorée : --range\n", "Option ignorée sans --montage : --format\n"},
         true},
        {"camera beyond the set's cameras",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--montage", "0:1,2:7"}, 0, {"Montage : 2 coupes"},
         {"Caméra 7 inexistante dans --montage : le set a 1 caméra\n"}, true},
        {"control characters in arguments are shown escaped",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--\x1b[31mrouge"}, 0, {},
         {"Option inconnue ignorée : --\\x1b[31mrouge\n"}, true},

        // The journal never holds the program up.
        {"journal.log is a FIFO nobody reads",
         [](const Place& p) {
             fs::create_directories(p.dir / "etat" / "Quorvel");
             mkfifo((p.dir / "etat" / "Quorvel" / "journal.log").c_str(), 0600);
         },
         {"--cli", "{set}", "{out}", "--video", "{dir}/film.mp4"}, 0, {"Vidéo : "}, {}, true,
         [](const Place& p, const ChildRun&) {
             EXPECT_TRUE(fs::is_fifo(p.dir / "etat" / "Quorvel" / "journal.log"));
             EXPECT_TRUE(fs::exists(p.dir / "film.mp4"));
         }},
        // Camera files as cameras still write them, and what lies beside them:
        // everything left aside is named, thumbnails quietly excepted.
        {"HDV file, a note, a stray light copy and a thumbnail",
         [](const Place& p) {
             test::makeClip(p.set / "Cam 2" / "hdv.m2t", 3, true, {"-c:v", "mpeg2video", "-f", "mpegts"});
             test::writeText(p.set / "Cam 2" / "GL010099.LRV", "pas une vidéo");
             test::writeText(p.set / "Cam 2" / "hdv.THM", "pas une image");
             test::writeText(p.set / "Cam 2" / "notes.txt", "batterie 2\n");
         },
         plain, 0, {"[CAM] Cam 2 : 1 fichiers"},
         {"Fichier écarté : Cam 2/GL010099.LRV (copie légère sans chapitre du même nom)\n",
          "Fichier écarté : Cam 2/notes.txt (format non pris en charge)\n"},
         true, [](const Place&, const ChildRun& r) { EXPECT_EQ(r.err.find("THM"), std::string::npos) << r.err; }},
        {"--rate asking drop-frame where there is none",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--rate", "25df"}, 1, {},
         {"Valeur invalide pour --rate : « 25df » (attendu : 23.976, 24, 25"}, false},
    };
    return table;
}

class HostileInput : public ::testing::TestWithParam<Case> {};

std::string expand(std::string s, const Place& p) {
    for (auto [key, value] : {std::pair<std::string, std::string>{"{set}", p.set.string()},
                              {"{out}", p.out.string()}, {"{dir}", p.dir.string()}})
        for (size_t at = s.find(key); at != std::string::npos; at = s.find(key, at + value.size()))
            s.replace(at, key.size(), value);
    return s;
}

TEST_P(HostileInput, GivesItsOutcome) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg absent";
    const Case& c = GetParam();
    test::TempDir dir;
    Place p{dir.path(), dir / "set", dir / "out.xml"};
    // One camera and one recorder of a generated set, linked in.
    fs::path generated = test::generatedSet("tiny", 3);
    if (generated.empty()) GTEST_SKIP() << "generator unavailable";
    for (const char* f : {"Cam 1/clip 1.mp4", "Son 1/prise 1.wav"}) {
        fs::create_directories((p.set / f).parent_path());
        fs::copy_file(generated / f, p.set / f);
    }
    c.make(p);

    std::vector<std::string> args;
    for (const auto& a : c.args) args.push_back(expand(a, p));
    ChildRun r = runProgram(args, p.dir);
    ASSERT_TRUE(r.finished) << "hung; stderr: " << r.err;
    ASSERT_FALSE(r.signalled) << "aborted; stderr: " << r.err;
    EXPECT_EQ(r.status, c.status) << r.out << r.err;
    for (const auto& s : c.stdoutHas) EXPECT_NE(r.out.find(expand(s, p)), std::string::npos) << s << "\n" << r.out;
    for (const auto& s : c.stderrHas) EXPECT_NE(r.err.find(expand(s, p)), std::string::npos) << s << "\n" << r.err;
    EXPECT_EQ(fs::exists(p.out), c.writesXml);
    if (c.writesXml && fs::exists(p.out)) expectSoundDocument(p.out);
    if (c.check) c.check(p, r);
}

INSTANTIATE_TEST_SUITE_P(Cases, HostileInput, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             std::string n;
                             for (char ch : std::string(info.param.name))
                                 n += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                             return n;
                         });

}  // namespace
}  // namespace qv
