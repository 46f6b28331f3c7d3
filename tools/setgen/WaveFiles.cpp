// Field-recorder files written byte by byte: RIFF, RF64 and Wave64.
#include "WaveFiles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>

#include "base/Text.h"

namespace fs = std::filesystem;

namespace qv::setgen {

namespace {

void put(std::string& out, uint64_t v, int bytes) {
    for (int k = 0; k < bytes; ++k) out.push_back(static_cast<char>((v >> (8 * k)) & 0xff));
}

// A field of fixed width, cut or padded with zeros.
void fixed(std::string& out, const std::string& text, size_t width) {
    std::string f = text.substr(0, width);
    f.resize(width, '\0');
    out += f;
}

// The format chunk's body: plain PCM, or the extensible form whose channel
// mask says where each channel belongs (0: nowhere in particular).
std::string formatBody(const WaveFile& w) {
    const int block = w.channels * w.bits / 8;
    const bool extensible = w.noLayout || w.channels > 2 || w.bits > 16;
    std::string f;
    put(f, extensible ? 0xFFFE : 1, 2);
    put(f, static_cast<uint64_t>(w.channels), 2);
    put(f, static_cast<uint64_t>(w.rate), 4);
    put(f, static_cast<uint64_t>(w.rate) * block, 4);
    put(f, static_cast<uint64_t>(block), 2);
    put(f, static_cast<uint64_t>(w.bits), 2);
    if (extensible) {
        put(f, 22, 2);
        put(f, static_cast<uint64_t>(w.bits), 2);  // valid bits
        uint32_t mask = 0;
        if (!w.noLayout) mask = w.channels == 1 ? 0x4 : w.channels == 2 ? 0x3 : (1u << w.channels) - 1;
        put(f, mask, 4);
        // KSDATAFORMAT_SUBTYPE_PCM
        const unsigned char pcm[16] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                       0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        f.append(reinterpret_cast<const char*>(pcm), 16);
    }
    return f;
}

std::string samples(const std::vector<float>& interleaved, int bits) {
    std::string out;
    out.reserve(interleaved.size() * static_cast<size_t>(bits / 8));
    const double full = bits == 24 ? 8388607.0 : 32767.0;
    for (float v : interleaved) {
        auto q = static_cast<int64_t>(std::lround(std::clamp<double>(v, -1.0, 1.0) * full));
        put(out, static_cast<uint64_t>(q), bits / 8);
    }
    return out;
}

struct Chunk {
    std::string id;  // four characters
    std::string body;
};

// Wave64 names its chunks by GUID: the four characters, then a fixed tail
// (RIFF's own GUID has a tail of its own).
std::string w64Guid(const std::string& id) {
    static const unsigned char riffTail[12] = {0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    static const unsigned char tail[12] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    std::string g = id;
    g.append(reinterpret_cast<const char*>(id == "riff" ? riffTail : tail), 12);
    return g;
}

std::string riffBytes(const std::vector<Chunk>& chunks, bool rf64, uint64_t frames) {
    std::string body = "WAVE";
    uint64_t dataSize = 0;
    for (const Chunk& c : chunks)
        if (c.id == "data") dataSize = c.body.size();
    if (rf64) {
        std::string ds64;
        uint64_t riffSize = 4 + 36;  // "WAVE" and the ds64 chunk
        for (const Chunk& c : chunks) riffSize += 8 + c.body.size() + (c.body.size() & 1);
        put(ds64, riffSize, 8);
        put(ds64, dataSize, 8);
        put(ds64, frames, 8);
        put(ds64, 0, 4);  // no table
        body += "ds64";
        put(body, ds64.size(), 4);
        body += ds64;
    }
    for (const Chunk& c : chunks) {
        body += c.id;
        const bool large = rf64 && c.id == "data";
        put(body, large ? 0xFFFFFFFFu : c.body.size(), 4);
        body += c.body;
        if (c.body.size() & 1) body.push_back('\0');
    }
    std::string out = rf64 ? "RF64" : "RIFF";
    put(out, rf64 ? 0xFFFFFFFFu : body.size(), 4);
    return out + body;
}

std::string w64Bytes(const std::vector<Chunk>& chunks) {
    std::string body = w64Guid("wave");
    for (const Chunk& c : chunks) {
        body += w64Guid(c.id == "fmt " ? "fmt " : c.id == "data" ? "data" : c.id);
        put(body, 24 + c.body.size(), 8);
        body += c.body;
        body.append((8 - body.size() % 8) % 8, '\0');
    }
    std::string out = w64Guid("riff");
    put(out, 24 + body.size(), 8);
    return out + body;
}

}  // namespace

std::string bextBody(const WaveStamp& stamp) {
    std::string b;
    fixed(b, stamp.description, 256);
    fixed(b, stamp.originator, 32);
    fixed(b, "", 32);  // originator reference
    fixed(b, stamp.date, 10);
    fixed(b, stamp.time, 8);
    put(b, stamp.timeReference & 0xffffffffu, 4);
    put(b, stamp.timeReference >> 32, 4);
    put(b, 1, 2);   // version
    fixed(b, "", 64);  // UMID
    fixed(b, "", 190);  // loudness fields and reserved
    b += "A=PCM,T=quorvel-setgen\r\n";  // coding history
    return b;
}

std::string ixmlText(const WaveXml& xml, const WaveStamp& stamp, int rate) {
    std::string t = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<BWFXML>\n<IXML_VERSION>1.61</IXML_VERSION>\n";
    t += "<PROJECT>" + xml.project + "</PROJECT>\n<TAKE>" + xml.take + "</TAKE>\n";
    t += "<FAMILY_UID>" + xml.family + "</FAMILY_UID>\n";
    t += "<SPEED>\n<TIMESTAMP_SAMPLE_RATE>" + std::to_string(rate) + "</TIMESTAMP_SAMPLE_RATE>\n";
    t += "<TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>" + std::to_string(stamp.timeReference >> 32) +
         "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>\n";
    t += "<TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>" + std::to_string(stamp.timeReference & 0xffffffffu) +
         "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>\n</SPEED>\n";
    t += "<TRACK_LIST>\n<TRACK_COUNT>" + std::to_string(xml.tracks.size()) + "</TRACK_COUNT>\n";
    for (size_t k = 0; k < xml.tracks.size(); ++k)
        t += cformat("<TRACK><CHANNEL_INDEX>%zu</CHANNEL_INDEX><INTERLEAVE_INDEX>%zu</INTERLEAVE_INDEX><NAME>%s</NAME></TRACK>\n",
                     k + 1, k + 1, xml.tracks[k].c_str());
    t += "</TRACK_LIST>\n</BWFXML>\n";
    return t;
}

Status writeWave(const fs::path& file, const std::vector<float>& interleaved, const WaveFile& format) {
    std::vector<Chunk> chunks;
    chunks.push_back({"fmt ", formatBody(format)});
    if (format.rawBext) chunks.push_back({"bext", *format.rawBext});
    else if (format.bext) chunks.push_back({"bext", bextBody(*format.bext)});
    if (format.ixml) chunks.push_back({"iXML", ixmlText(*format.ixml, format.bext.value_or(WaveStamp{}), format.rate)});
    chunks.push_back({"data", samples(interleaved, format.bits)});
    const uint64_t frames = interleaved.size() / static_cast<size_t>(std::max(1, format.channels));
    const std::string bytes = format.container == WaveContainer::w64 ? w64Bytes(chunks)
                                                                    : riffBytes(chunks, format.container == WaveContainer::rf64, frames);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) return Error{"Impossible d'écrire " + file.string()};
    return Ok{};
}

}  // namespace qv::setgen
