#include "entry/CliOutputs.h"

#include <cctype>
#include <fstream>

#include "base/SafeText.h"

namespace fs = std::filesystem;

namespace qv::CLI {

namespace {

// An existing file is replaced only when it is an XML file (or empty):
// a video of the set or any other document given as output by mistake
// must survive the run.
bool mayReplaceXml(const fs::path& output) {
    std::error_code ec;
    fs::file_status st = fs::status(output, ec);
    if (ec || !fs::exists(st)) return true;
    if (!fs::is_regular_file(st)) return false;
    std::ifstream in(output, std::ios::binary);
    std::string head(512, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(in.gcount()));
    if (head.rfind("\xEF\xBB\xBF", 0) == 0) head.erase(0, 3);
    size_t at = head.find_first_not_of(" \t\r\n");
    if (at == std::string::npos) return head.size() < 512;  // empty or blank
    std::string_view rest = std::string_view(head).substr(at);
    return rest.starts_with("<?xml") || rest.starts_with("<xmeml") || rest.starts_with("<!DOCTYPE") ||
           rest.starts_with("<mlt");
}

// The same care for a JSON timeline (.otio): only a JSON object is replaced.
bool mayReplaceJson(const fs::path& output) {
    std::error_code ec;
    fs::file_status st = fs::status(output, ec);
    if (ec || !fs::exists(st)) return true;
    if (!fs::is_regular_file(st)) return false;
    std::ifstream in(output, std::ios::binary);
    char c = 0;
    while (in.get(c))
        if (!std::isspace(static_cast<unsigned char>(c))) return c == '{';
    return true;  // empty or blank
}

}  // namespace

int judgeOutputs(const std::vector<Output>& outputs, const OutputTarget::Protected& owned, std::ostream& out,
                 std::ostream& err) {
    for (const Output& o : outputs) {
        const fs::path file = fs::absolute(o.text);
        Status usable = o.kind == Output::Kind::folder ? OutputTarget::prepareFolder(file, owned)
                                                       : OutputTarget::check(file, owned);
        if (!usable) {
            out << "Erreur d'écriture : " << terminalSafe(usable.error().message) << "\n";
            return 1;
        }
        const bool json = o.kind == Output::Kind::json;
        if ((o.kind == Output::Kind::xml || json) && !(json ? mayReplaceJson(file) : mayReplaceXml(file))) {
            err << "Erreur d'écriture : " << terminalSafe(o.text) << " n'est pas un fichier "
                << (json ? "OpenTimelineIO" : "XML") << ", il n'est pas remplacé\n";
            return 1;
        }
    }
    return 0;
}

}  // namespace qv::CLI
