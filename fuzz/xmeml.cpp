// The XML writer fed with names of any bytes, odd rates and sizes: both
// documents (synchronised and edited) must be XML 1.0 that a strict parser
// accepts, with no number that is not one.
#include <expat.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "export/PremiereExport.h"

namespace {

// Text of the element being read; names are free text, every other element
// holds a keyword or a number.
struct Reading {
    std::string element, text;
    bool numberless = true;
};

void expectStrictXml(const std::string& doc) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    Reading reading;
    XML_SetUserData(parser, &reading);
    XML_SetElementHandler(
        parser,
        [](void* data, const XML_Char* name, const XML_Char**) {
            auto* r = static_cast<Reading*>(data);
            r->element = name;
            r->text.clear();
        },
        [](void* data, const XML_Char*) {
            auto* r = static_cast<Reading*>(data);
            if (r->element != "name" && r->element != "pathurl" &&
                (r->text.find("nan") != std::string::npos || r->text.find("inf") != std::string::npos))
                r->numberless = false;
            r->text.clear();
        });
    XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char* s, int len) {
        static_cast<Reading*>(data)->text.append(s, static_cast<size_t>(len));
    });
    bool ok = XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) != XML_STATUS_ERROR;
    XML_ParserFree(parser);
    if (!ok || !reading.numberless) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    std::vector<qv::MediaSource> sources;
    qv::SyncResult result;
    int sourceCount = in.ConsumeIntegralInRange(1, 4);
    for (int s = 0; s < sourceCount; ++s) {
        qv::MediaSource source;
        source.id = qv::Uuid::make();
        source.name = in.ConsumeRandomLengthString(40);
        source.kind = in.ConsumeBool() ? qv::SourceKind::camera : qv::SourceKind::audio;
        int items = in.ConsumeIntegralInRange(0, 3);
        for (int i = 0; i < items; ++i) {
            qv::MediaItem item;
            item.id = qv::Uuid::make();
            item.url = "/set/" + source.name + "/" + in.ConsumeRandomLengthString(40);
            item.duration = in.ConsumeFloatingPointInRange(0.001, 10000.0);
            item.hasVideo = source.kind == qv::SourceKind::camera && in.ConsumeBool();
            item.frameRate = item.hasVideo ? in.ConsumeFloatingPointInRange(0.0, 300.0) : 0;
            item.width = item.hasVideo ? in.ConsumeIntegralInRange(0, 8000) : 0;
            item.height = item.hasVideo ? in.ConsumeIntegralInRange(0, 8000) : 0;
            item.audioChannels = in.ConsumeIntegralInRange(0, 8);
            item.sampleRate = in.ConsumeFloatingPointInRange(0.0, 192000.0);
            qv::PlacedItem placed;
            placed.sourceIndex = s;
            placed.item = item;
            placed.start = in.ConsumeFloatingPointInRange(0.0, 10000.0);
            result.placed.push_back(placed);
            source.items.push_back(item);
        }
        sources.push_back(std::move(source));
    }
    std::stable_sort(result.placed.begin(), result.placed.end(),
                     [](const qv::PlacedItem& a, const qv::PlacedItem& b) { return a.start < b.start; });

    const std::string name = in.ConsumeRandomLengthString(40);
    expectStrictXml(qv::PremiereExport::makeXML(name, sources, result, {}, {}));

    std::vector<int> cameras;
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i].kind == qv::SourceKind::camera) cameras.push_back(static_cast<int>(i));
    std::vector<qv::Cut> cuts;
    int cutCount = in.ConsumeIntegralInRange(0, 12);
    for (int c = 0; c < cutCount; ++c) {
        qv::Cut cut;
        cut.time = in.ConsumeFloatingPointInRange(0.0, 20000.0);
        cut.camera = in.ConsumeIntegralInRange(-1, 4);
        cuts.push_back(cut);
    }
    qv::sortByTime(cuts);
    const double duration = result.duration();
    double a = in.ConsumeFloatingPointInRange(0.0, duration), b = in.ConsumeFloatingPointInRange(0.0, duration);
    qv::AudioSettings audio;
    audio.mode = static_cast<qv::AudioSettings::Mode>(in.ConsumeIntegralInRange(0, 2));
    qv::OutputFormat format = in.ConsumeBool() ? qv::OutputFormat::landscape : qv::OutputFormat::portrait;
    expectStrictXml(qv::PremiereExport::makeMontageXML(name, sources, result, qv::Segment::build(cuts, duration), cameras,
                                                       {std::min(a, b), std::max(a, b)}, {}, {}, audio, {}, {}, format,
                                                       {}, in.ConsumeBool()));
    return 0;
}
