#include "looks/LookLibrary.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>

#include "base/Json.h"
#include "base/Text.h"
#include "platform/Paths.h"

namespace qv::LookLibrary {

namespace fs = std::filesystem;

namespace {

// What identifies one version of a file: a file written again, or another
// file moved into its place, has another stamp.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified {};
    bool operator==(const FileStamp& o) const {
        return device == o.device && inode == o.inode && size == o.size && modified.tv_sec == o.modified.tv_sec &&
               modified.tv_nsec == o.modified.tv_nsec;
    }
};

std::optional<FileStamp> stampOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return FileStamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim};
}

// Parsed LUTs by full path, so that a library moved by the environment
// never answers with another folder's file. A file that failed to read or
// parse is remembered as null with its stamp: grades bake often, and a bad
// file is read again only once it has changed.
struct LutCache {
    struct Entry {
        FileStamp stamp;
        std::shared_ptr<const CubeLUT> lut;  // null: the file was refused
    };
    std::mutex mutex;
    std::map<std::string, Entry> entries;  // guarded by mutex
};

LutCache& cache() {
    static LutCache instance;
    return instance;
}

fs::path lutFolder() { return base() / kLutFolder; }
fs::path presetFolder() { return base() / kPresetFolder; }

bool hasExtension(const fs::path& path, std::string_view extension) {
    return toLower(path.extension().string()) == extension;
}

std::string presetFileName(const std::string& name) {
    std::string safe = name.empty() ? "Préréglage" : name;
    for (char& c : safe) {
        unsigned char u = static_cast<unsigned char>(c);
        if (c == '/' || c == '\\' || c == ':' || u < 0x20 || u == 0x7F) c = '-';
    }
    return safe + kPresetExtension;
}

// A LUT name from a grade is one file name, never a path out of the folder.
bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::string quoted(const fs::path& file) { return "« " + file.filename().string() + " »"; }

}  // namespace

fs::path base() { return paths::appData(); }

std::vector<std::string> luts() {
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(lutFolder(), ec), end; !ec && it != end; it.increment(ec)) {
        if (it->is_regular_file(ec) && hasExtension(it->path(), ".cube"))
            names.push_back(it->path().filename().string());
    }
    std::stable_sort(names.begin(), names.end(),
                     [](const std::string& a, const std::string& b) { return naturalCompare(a, b) < 0; });
    return names;
}

std::shared_ptr<const CubeLUT> lut(const std::string& name) {
    if (!isPlainFileName(name)) return nullptr;
    const std::string path = (lutFolder() / name).string();
    LutCache& c = cache();
    std::lock_guard lock(c.mutex);
    const std::optional<FileStamp> stamp = stampOf(path);
    if (!stamp) {
        c.entries.erase(path);
        return nullptr;
    }
    if (auto it = c.entries.find(path); it != c.entries.end() && it->second.stamp == *stamp) return it->second.lut;
    std::shared_ptr<const CubeLUT> lut;
    if (auto text = paths::readFile(path))
        if (auto parsed = CubeLUT::parse(*text)) lut = std::make_shared<const CubeLUT>(std::move(*parsed));
    c.entries[path] = {*stamp, lut};
    return lut;
}

std::string presetText(const Preset& preset) {
    // The plain json type keeps its keys sorted, the grade's included.
    json::Json j = json::Json::object();
    j["name"] = preset.name;
    j["grade"] = json::Json(preset.grade.toJson());
    return j.dump(2, ' ', false, json::Json::error_handler_t::replace) + "\n";
}

std::optional<Preset> parsePreset(const std::string& text, const std::string& fallbackName) {
    auto j = json::parse(text);
    if (!j || !j->is_object()) return std::nullopt;
    Preset preset;
    preset.name = json::string(*j, "name", fallbackName);
    if (const json::Json* grade = json::field(*j, "grade")) {
        auto parsed = ColorGrade::fromJson(*grade);
        if (!parsed) return std::nullopt;
        preset.grade = std::move(*parsed);
    }
    return preset;
}

std::vector<Preset> presets() {
    std::vector<Preset> list;
    std::error_code ec;
    for (fs::directory_iterator it(presetFolder(), ec), end; !ec && it != end; it.increment(ec)) {
        if (!it->is_regular_file(ec) || !hasExtension(it->path(), kPresetExtension)) continue;
        auto text = paths::readFile(it->path());
        if (!text) continue;
        if (auto preset = parsePreset(*text, it->path().stem().string())) list.push_back(std::move(*preset));
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const Preset& a, const Preset& b) { return naturalCompare(a.name, b.name) < 0; });
    return list;
}

Status save(const Preset& preset) {
    const fs::path folder = presetFolder();
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec || !paths::writeAtomically(folder / presetFileName(preset.name), presetText(preset)))
        return Error{"Impossible d'enregistrer le préréglage « " + preset.name + " »."};
    return Ok{};
}

Status remove(const Preset& preset) {
    std::error_code ec;
    fs::remove(presetFolder() / presetFileName(preset.name), ec);
    if (ec) return Error{"Impossible de supprimer le préréglage « " + preset.name + " »."};
    return Ok{};
}

Result<std::string> importLUT(const fs::path& file) {
    auto text = paths::readFile(file);
    if (!text) return Error{"Impossible de lire le fichier " + quoted(file) + "."};
    if (!CubeLUT::parse(*text))
        return Error{"Le fichier " + quoted(file) +
                     " n'est pas une LUT .cube valide (taille ou nombre de valeurs incorrects)."};

    const fs::path folder = lutFolder();
    const std::string name = file.filename().string();
    const fs::path target = folder / name;
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) return Error{"Impossible de créer le dossier des LUT."};
    // Importing a file that already is the library's copy must not delete it.
    if (!fs::equivalent(file, target, ec)) {
        fs::remove(target, ec);
        if (!ec) fs::copy_file(file, target, ec);
        if (ec) return Error{"Impossible de copier " + quoted(file) + " dans la bibliothèque."};
    }

    LutCache& c = cache();
    std::lock_guard lock(c.mutex);
    c.entries.erase(target.string());
    return name;
}

Result<Preset> importPreset(const fs::path& file) {
    Preset preset;
    if (hasExtension(file, ".cube")) {
        auto name = importLUT(file);
        if (!name) return name.error();
        preset.name = file.stem().string();
        preset.grade.lut = *name;
        preset.grade.lutIntensity = 100;
    } else if (hasExtension(file, kPresetExtension)) {
        auto text = paths::readFile(file);
        if (!text) return Error{"Impossible de lire le fichier " + quoted(file) + "."};
        auto parsed = parsePreset(*text, file.stem().string());
        if (!parsed) return Error{"Le préréglage " + quoted(file) + " n'est pas lisible."};
        preset = std::move(*parsed);
        // A look made elsewhere may name a LUT this library does not hold.
        if (preset.grade.lut && !lut(*preset.grade.lut)) preset.grade.lut.reset();
    } else {
        return Error{"Le fichier " + quoted(file) + " n'est ni une LUT .cube ni un préréglage .quorvellook."};
    }
    if (auto saved = save(preset); !saved) return saved.error();
    return preset;
}

}  // namespace qv::LookLibrary
