// Bad files, bad paths and bad arguments against the real `--cli` executable,
// one row per case with the outcome it must give. Every case runs in a child
// process limited to 4 GB of address space and a minute of time: an abort,
// a signal, a hang or an XML that a strict parser refuses fails the row.
// The rows at the end run the application model without a window
// (quorvel-appprobe) over crafted project, settings and cache files and a
// project held by another program. Every child gets its own homes under the
// row's folder.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <chrono>
#include <fcntl.h>
#include <functional>

#include "persistence/ProjectStore.h"
#include "platform/Paths.h"
#include "support/Fixtures.h"
#include "support/XmemlCheck.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

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
// `during` runs in the parent once the child has started.
ChildRun runProgram(const std::string& exe, const std::vector<std::string>& args, const fs::path& scratch,
                    const std::function<void(pid_t)>& during = nullptr) {
    fs::path outFile = scratch / "stdout.txt", errFile = scratch / "stderr.txt";
    pid_t pid = fork();
    if (pid == 0) {
        for (auto [name, sub] : {std::pair{"QUORVEL_PROJECTS_DIR", "projets"}, {"XDG_CONFIG_HOME", "config"},
                                 {"XDG_STATE_HOME", "etat"}, {"XDG_DATA_HOME", "donnees"}, {"HOME", "maison"}})
            setenv(name, (scratch / sub).c_str(), 1);
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
        std::string program = exe;
        argv.push_back(program.data());
        std::vector<std::string> copy = args;
        for (auto& a : copy) argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    if (during) during(pid);
    ChildRun r;
    int status = 0;
    // The child's end is awaited as an event; a minute without it is a hang.
    const int ending = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    pollfd watch{ending, POLLIN, 0};
    int ready;
    do ready = ending >= 0 ? poll(&watch, 1, 60000) : -1;
    while (ready < 0 && errno == EINTR);
    if (ending >= 0) close(ending);
    r.finished = !(ending >= 0 && ready == 0);
    if (!r.finished) kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    r.signalled = r.finished && WIFSIGNALED(status);
    r.status = r.finished && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

// Files of the generated "devices" set copied into the case's set (the
// table's long recording linked, not copied).
void fromDevices(const Place& p, const std::vector<std::string>& files) {
    const fs::path devices = test::generatedSet("devices", 1);
    for (const std::string& f : files) {
        fs::create_directories((p.set / f).parent_path());
        if (f.ends_with("table.wav")) fs::create_symlink(devices / f, p.set / f);
        else fs::copy_file(devices / f, p.set / f);
    }
}

struct Case {
    const char* name;
    std::function<void(const Place&)> make;  // adds the hostile part to a good set
    std::vector<std::string> args;           // "{set}", "{out}", "{dir}" stand for the paths
    int status;
    std::vector<std::string> stdoutHas, stderrHas;
    bool writesXml;
    std::function<void(const Place&, const ChildRun&)> check = nullptr;
    const char* program = QUORVEL_EXE;
    // Held by the test while the child runs (another program's lock, a
    // mounted disk); nothing when the row cannot run here.
    std::function<std::shared_ptr<void>(const Place&)> hold = nullptr;
    std::function<void(pid_t, const Place&)> during = nullptr;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::string expand(std::string s, const Place& p);

// --- The project, settings and cache files the application rows craft.

using Json = nlohmann::json;

const char* const probe = QUORVEL_APPPROBE;
const std::vector<std::string> probeOpen = {"{set}", "ouvrir"};

fs::path projectFile(const Place& p) { return p.dir / "projets" / "projet-sonde.json"; }

// A file of the child's homes, its folders made.
void writeHomeFile(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    test::writeText(file, text);
}

// A project of the row's set as the program writes one, `extra` laid over it.
void writeProject(const Place& p, const Json& extra) {
    ProjectFile project;
    project.id = "projet-sonde";
    project.name = "sonde";
    project.folder = paths::standardized(p.set).string();
    Json j = project.toJson();
    j.update(extra);
    writeHomeFile(projectFile(p), j.dump(2));
}

Json oneCut() { return Json::parse(R"([{"time": 1.0, "camera": 0, "effect": "auto", "looks": {}}])"); }

Json storedProject(const Place& p) { return Json::parse(test::readText(projectFile(p)), nullptr, false); }

// The set's true synchronisation written as its cache, one start replaced.
void writeCache(const Place& p, double start) {
    auto sources = MediaScanner::scan(p.set);
    const ProjectStore::Stamps before = ProjectStore::stamps(sources);
    SyncCache cache = ProjectStore::cache(FolderSync::run(sources, [](double, const std::string&) {}), before);
    ASSERT_FALSE(cache.placed.empty());
    cache.placed.back().start = start;
    writeHomeFile(p.dir / "projets" / (ProjectStore::key(p.set) + ".sync.json"), cache.toJson().dump());
}

// The cache the run wrote anew: every start on the set's few seconds.
void expectSaneCache(const Place& p, const ChildRun&) {
    Json cache = Json::parse(test::readText(p.dir / "projets" / (ProjectStore::key(p.set) + ".sync.json")), nullptr, false);
    ASSERT_TRUE(cache.is_object());
    for (const Json& placed : cache["placed"]) EXPECT_LT(std::abs(placed["start"].get<double>()), 60.0);
}

// Files kept aside in `folder` whose name starts with `name`.
std::vector<fs::path> keptAside(const fs::path& folder, const std::string& name) {
    std::vector<fs::path> out;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(folder, ec))
        if (e.path().filename().string().rfind(name + ".endommagé-", 0) == 0) out.push_back(e.path());
    return out;
}

std::string insideSet(const std::string& target) {
    return "Erreur d'écriture : « " + target +
           " » est dans le dossier du set « set » : Quorvel n'écrit jamais parmi les rushes. Choisis un autre dossier.\n";
}

std::string readByProject(const std::string& target, const std::string& file) {
    return "« " + target + " » est « " + file + " », un fichier que le projet lit : il n'est pas remplacé.";
}


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
         [](const Place&) {}, {"--cli", "{set}", "{set}/Cam 1/clip 1.mp4"}, 1, {insideSet("{set}/Cam 1/clip 1.mp4")}, {},
         false, [](const Place& p, const ChildRun&) { EXPECT_GT(fs::file_size(p.set / "Cam 1" / "clip 1.mp4"), 10000u); }},
        {"output is an existing document that is not XML",
         [](const Place& p) { test::writeText(p.dir / "notes.txt", "mes notes"); },
         {"--cli", "{set}", "{dir}/notes.txt"}, 1, {},
         {"Erreur d'écriture : {dir}/notes.txt n'est pas un fichier XML, il n'est pas remplacé\n"}, false,
         [](const Place& p, const ChildRun&) { EXPECT_EQ(test::readText(p.dir / "notes.txt"), "mes notes"); }},
        {"output is an older XML, replaced",
         [](const Place& p) { test::writeText(p.out, "<?xml version=\"1.0\"?><vieux/>"); }, plain, 0, {}, {}, true},
        {"output in a folder that does not exist",
         [](const Place&) {}, {"--cli", "{set}", "{dir}/manque/out.xml"}, 1,
         {"Erreur d'écriture : fichier ou dossier introuvable : « {dir}/manque »\n"}, {}, false,
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
        {"camera beyond the set's cameras",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--montage", "0:1,2:7"}, 0, {"Montage : 2 coupes"},
         {"Caméra 7 inexistante dans --montage : le set a 1 caméra\n"}, true},
        {"control characters in arguments are shown escaped",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--\x1b[31mrouge"}, 0, {},
         {"Option inconnue ignorée : --\\x1b[31mrouge\n"}, true},

        // Devices' files, damaged: the rest of their take, recording or
        // stamp still stands.
        {"a take with one file truncated",
         [](const Place& p) {
             fromDevices(p, {"Son 1/table.wav", "Son 2/ZOOM0001_LR.WAV", "Son 2/ZOOM0001_Tr1.WAV",
                             "Son 2/ZOOM0001_LR-12.WAV"});
             std::string whole = test::readText(test::generatedSet("devices", 1) / "Son 2/ZOOM0001_Tr2.WAV");
             test::writeText(p.set / "Son 2/ZOOM0001_Tr2.WAV", whole.substr(0, whole.size() / 3));
         },
         plain, 0, {"[SON] Son 2 : 4 fichiers"}, {}, true,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("NON CALÉ : Son 2"), std::string::npos) << r.out; }},
        {"a chapter missing from the middle",
         [](const Place& p) { fromDevices(p, {"Son 1/table.wav", "Cam 1/GX010050.MP4", "Cam 1/GX030050.MP4"}); },
         plain, 0, {"GX010050.MP4", "GX030050.MP4"}, {}, true,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("NON CALÉ : Cam 1 / GX"), std::string::npos) << r.out; }},
        {"a bext chunk with nonsense values",
         [](const Place& p) {
             fromDevices(p, {"Son 1/table.wav", "Son 4/REC0001.WAV"});
             std::string bytes = test::readText(p.set / "Son 4/REC0001.WAV");
             const size_t bext = bytes.find("bext") + 8;
             bytes.replace(bext + 320, 18, "9999-99-99xx:yy:zz");
             for (size_t k = 338; k < 346; ++k) bytes[bext + k] = '\xff';
             test::writeText(p.set / "Son 4/REC0001.WAV", bytes);
         },
         plain, 0, {"REC0001.WAV"}, {}, true,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("NON CALÉ : Son 4"), std::string::npos) << r.out; }},
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
        // No output of the command line lands on what the set owns, checked before any work.
        {"--mlt onto a hard link of a rush",
         [](const Place& p) { fs::create_hard_link(p.set / "Son 1" / "prise 1.wav", p.dir / "lien.mlt"); },
         {"--cli", "{set}", "{out}", "--mlt", "{dir}/lien.mlt"}, 1,
         {"Erreur d'écriture : " + readByProject("{dir}/lien.mlt", "{set}/Son 1/prise 1.wav") + "\n"}, {}, false,
         [](const Place& p, const ChildRun& r) {
             EXPECT_EQ(r.out.find("Synchro"), std::string::npos);
             EXPECT_EQ(test::readText(p.dir / "lien.mlt"), test::readText(p.set / "Son 1" / "prise 1.wav"));
         }},
        {"--otio into the set through a link",
         [](const Place& p) { fs::create_directory_symlink(p.set, p.dir / "raccourci"); },
         {"--cli", "{set}", "{out}", "--otio", "{dir}/raccourci/set.otio"}, 1, {insideSet("{dir}/raccourci/set.otio")},
         {}, false, [](const Place& p, const ChildRun&) { EXPECT_FALSE(fs::exists(p.set / "set.otio")); }},
        {"--video onto a rush",
         [](const Place&) {}, {"--cli", "{set}", "{out}", "--video", "{set}/Cam 1/clip 1.mp4"}, 1,
         {insideSet("{set}/Cam 1/clip 1.mp4")}, {}, false,
         [](const Place& p, const ChildRun& r) {
             EXPECT_EQ(r.out.find("Synchro"), std::string::npos);
             EXPECT_EQ(test::readText(p.set / "Cam 1" / "clip 1.mp4"),
                       test::readText(test::generatedSet("tiny", 3) / "Cam 1" / "clip 1.mp4"));
         }},
        {"--video onto a link to a rush",
         [](const Place& p) { fs::create_symlink(p.set / "Cam 1" / "clip 1.mp4", p.dir / "rendu.mp4"); },
         {"--cli", "{set}", "{out}", "--video", "{dir}/rendu.mp4"}, 1,
         {"Erreur d'écriture : " + readByProject("{dir}/rendu.mp4", "{set}/Cam 1/clip 1.mp4") + "\n"}, {}, false},
        {"--video onto a folder", [](const Place&) {}, {"--cli", "{set}", "{out}", "--video", "{dir}"}, 1,
         {"Erreur d'écriture : « {dir} » est un dossier\n"}, {}, false,
         [](const Place&, const ChildRun& r) { EXPECT_EQ(r.out.find("Synchro"), std::string::npos); }},
        {"--clips-drops inside the set", [](const Place&) {},
         {"--cli", "{set}", "{out}", "--clips-drops", "{set}/Clips"}, 1, {insideSet("{set}/Clips")}, {}, false,
         [](const Place& p, const ChildRun&) { EXPECT_FALSE(fs::exists(p.set / "Clips")); }},
        {"--clips-drops into a folder that does not exist yet", [](const Place&) {},
         {"--cli", "{set}", "{out}", "--clips-drops", "{dir}/nouveau/clips", "--marges-drop", "0.5-0.5"}, 0, {}, {},
         true, [](const Place& p, const ChildRun&) { EXPECT_TRUE(fs::is_directory(p.dir / "nouveau" / "clips")); }},
        {"--video interrupted by TERM", [](const Place&) {},
         {"--cli", "{set}", "{out}", "--video", "{dir}/rendu.mp4", "--format", "9:16", "--codec", "hevc"}, 143, {},
         {"Export vidéo interrompu (signal TERM) : le fichier partiel « .rendu.mp4.partiel » est supprimé.\n"}, true,
         [](const Place& p, const ChildRun&) {
             EXPECT_FALSE(fs::exists(p.dir / ".rendu.mp4.partiel"));
             EXPECT_FALSE(fs::exists(p.dir / "rendu.mp4"));
         },
         QUORVEL_EXE, nullptr,
         [](pid_t pid, const Place& p) {
             // TERM as soon as the render has begun writing.
             for (int i = 0; i < 6000 && !fs::exists(p.dir / ".rendu.mp4.partiel"); ++i)
                 std::this_thread::sleep_for(std::chrono::milliseconds(10));
             kill(pid, SIGTERM);
         }},

        // A cache start far past any set is no cache: the set is synchronised again.
        {"sync cache start 1e8", [](const Place& p) { writeCache(p, 1e8); }, probeOpen, 0, {"COUPES : 1\n"}, {}, false,
         expectSaneCache, probe},
        {"settings with a deeply nested value",
         [](const Place& p) {
             writeHomeFile(p.dir / "config" / "quorvel" / "settings.json",
                           "{\"snapEnabled\": " + std::string(100000, '[') + std::string(100000, ']') + "}");
         },
         probeOpen, 0,
         {"ERREUR : Réglages illisibles (imbrication trop profonde (plus de 64 niveaux)) : le fichier est gardé à part "
          "sous « settings.json.endommagé-",
          "COUPES : 1\n"},
         {}, false,
         [](const Place& p, const ChildRun&) {
             EXPECT_EQ(keptAside(p.dir / "config" / "quorvel", "settings.json").size(), 1u);
         },
         probe},
        {"settings file of 2 MB",
         [](const Place& p) {
             writeHomeFile(p.dir / "config" / "quorvel" / "settings.json", "{" + std::string(2 << 20, ' ') + "}");
         },
         probeOpen, 0, {"ERREUR : Réglages illisibles (fichier trop gros (2,0 Mo, 1,0 Mo au plus))"}, {}, false,
         nullptr, probe},
        {"project file of 4 GB",
         [](const Place& p) {
             fs::create_directories(p.dir / "projets");
             int fd = open((p.dir / "projets" / "projet-gros.json").c_str(), O_WRONLY | O_CREAT, 0600);
             ASSERT_EQ(ftruncate(fd, off_t{4} << 30), 0);  // sparse: no disk used
             close(fd);
         },
         probeOpen, 0,
         {"ERREUR : Le projet « projet-gros.json » est endommagé (fichier trop gros (4,0 Go, 256 Mo au plus)) : il est "
          "gardé à part sous « projet-gros.json.endommagé-",
          "COUPES : 1\n"},
         {}, false,
         [](const Place& p, const ChildRun&) {
             auto kept = keptAside(p.dir / "projets", "projet-gros.json");
             ASSERT_EQ(kept.size(), 1u);
             EXPECT_EQ(fs::file_size(kept[0]), uintmax_t{4} << 30);
         },
         probe},

        // A project another program holds opens read-only and is left as it was.
        {"project open in another program",
         [](const Place& p) {
             writeProject(p, {{"cuts", oneCut()}});
         },
         probeOpen, 0,
         {"ERREUR : « sonde » est déjà ouvert dans une autre fenêtre de Quorvel : il s'ouvre ici en lecture seule",
          "PIED : Lecture seule : ce projet est ouvert dans une autre fenêtre de Quorvel", "COUPES : 1\n"},
         {}, false,
         [](const Place& p, const ChildRun&) { EXPECT_EQ(storedProject(p)["cuts"][0]["time"], 1.0); },
         probe,
         [](const Place& p) -> std::shared_ptr<void> {
             fs::create_directories(p.dir / "projets");
             return std::shared_ptr<paths::FileLock>(paths::FileLock::tryTake(p.dir / "projets" / "projet-sonde.lock"));
         }},
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

    std::shared_ptr<void> held;
    if (c.hold && !(held = c.hold(p))) GTEST_SKIP() << "cette machine ne permet pas ce cas (montage d'un tmpfs)";
    std::vector<std::string> args;
    for (const auto& a : c.args) args.push_back(expand(a, p));
    ChildRun r = runProgram(c.program, args, p.dir,
                            c.during ? std::function<void(pid_t)>([&](pid_t pid) { c.during(pid, p); }) : nullptr);
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
