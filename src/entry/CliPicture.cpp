#include "entry/CliPicture.h"

#include "app/ConformCopies.h"
#include "base/SafeText.h"
#include "export/SetRate.h"

namespace qv::CLI {

void reportSetAside(const std::vector<MediaScanner::SetAside>& files, std::ostream& err) {
    for (const auto& f : files) err << terminalSafe(f.message()) << "\n";
}

std::optional<PremiereExport::SequenceRate> rateOf(const std::string& value) {
    std::string text = value;
    const bool drop = text.size() > 2 && text.compare(text.size() - 2, 2, "df") == 0;
    if (drop) text.resize(text.size() - 2);
    auto rate = PremiereExport::rateFromText(text);
    if (!rate || (drop && !rate->canDropFrame())) return std::nullopt;
    return rate->counted(drop);
}

PremiereExport::PictureChoices pictureChoices(std::optional<PremiereExport::SequenceRate> rate, bool cfr,
                                              const std::vector<MediaSource>& sources, const SyncResult& result,
                                              std::ostream& out, std::ostream& err,
                                              const std::function<void(double, const std::string&)>& progress) {
    PremiereExport::PictureChoices choices;
    choices.rate = PremiereExport::chosenRate(sources, result, rate);
    out << "Cadence : " << PremiereExport::rateLabel(*choices.rate) << (rate ? " (choisie)" : " (la plus fréquente)")
        << (choices.rate->dropFrame ? ", drop-frame" : "") << "\n";
    const auto variable = ConformCopies::names(sources, result);
    for (const std::string& name : variable)
        err << "Fichier à cadence variable : " << terminalSafe(name)
            << (cfr ? "" : " (les logiciels de montage le liront à cadence fixe ; --cfr en fait une copie)") << "\n";
    if (!cfr || variable.empty()) return choices;
    const ProxyCache cache = ConformCopies::cache();
    choices.copies = ConformCopies::makeNow(
        cache, sources, result, [&](double share) { progress(share, "Copies à cadence fixe"); },
        [&](const std::string& line) { err << terminalSafe(line) << "\n"; });
    out << "Copies à cadence fixe : " << choices.copies.size() << " sur " << variable.size() << " dans "
        << terminalSafe(cache.folder().string()) << "\n";
    return choices;
}

}  // namespace qv::CLI
