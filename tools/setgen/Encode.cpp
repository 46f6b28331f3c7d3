// Encoding through the ffmpeg executable, and the float WAV it reads.
#include "Encode.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>

#include "FrameCode.h"
#include "FrameTimes.h"
#include "base/Text.h"
#include "platform/Process.h"

namespace fs = std::filesystem;

namespace qv::setgen {

namespace {

const char* const fontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";

std::string extensionOf(const fs::path& p) { return toLower(p.extension().string()); }

void put16(std::ofstream& out, uint16_t v) {
    char b[2] = {static_cast<char>(v & 0xff), static_cast<char>(v >> 8)};
    out.write(b, 2);
}

void put32(std::ofstream& out, uint32_t v) {
    char b[4] = {static_cast<char>(v & 0xff), static_cast<char>((v >> 8) & 0xff),
                 static_cast<char>((v >> 16) & 0xff), static_cast<char>(v >> 24)};
    out.write(b, 4);
}

std::string drawText(const std::string& text, int size, const std::string& y) {
    return cformat("drawtext=fontfile=%s:text='%s':fontsize=%d:fontcolor=white:x=(w-tw)/2:y=%s", fontFile,
                   text.c_str(), size, y.c_str());
}

std::vector<std::string> metadataArgs(const std::string& creationTime) {
    std::vector<std::string> args = {"-map_metadata", "-1"};
    if (!creationTime.empty()) {
        args.push_back("-metadata");
        args.push_back("creation_time=" + creationTime);
    }
    return args;
}

// A flat colour for light pictures; with grain, soft gradients of the
// camera's colour drifting slowly, as lights sweep a room. An interlaced
// picture is drawn at its field rate.
std::string backgroundSource(const Picture& picture, double length) {
    const unsigned colour = picture.colour;
    const int num = picture.interlaced ? picture.fpsNum * 2 : picture.fpsNum;
    if (!picture.grain.on())
        return cformat("color=c=0x%06x:s=%dx%d:r=%d/%d:d=%.6f", colour, picture.width, picture.height, num,
                       picture.fpsDen, length);
    const unsigned dark = (colour >> 2) & 0x3f3f3f, light = std::min<unsigned>(colour * 2, 0xffffff) | 0x202020;
    return cformat("gradients=s=%dx%d:r=%d/%d:d=%.6f:n=3:c0=0x%06x:c1=0x%06x:c2=0x%06x:speed=0.015:seed=%u",
                   picture.width, picture.height, num, picture.fpsDen, length, colour, dark, light & 0xffffff,
                   static_cast<unsigned>(picture.grain.seed % 2147483647u));
}

bool isTransportStream(const std::string& ext) {
    return ext == ".mts" || ext == ".m2ts" || ext == ".m2t" || ext == ".ts";
}

// The muxer the file's extension asks for.
const char* muxerFor(const std::string& ext) {
    if (isTransportStream(ext)) return "mpegts";
    return ext == ".mov" ? "mov" : "mp4";
}

// Uniform noise drawn again for every frame, on luma and chroma.
std::string grainFilter(const Grain& grain) {
    return cformat("noise=alls=%d:allf=t+u:all_seed=%u", std::clamp(grain.strength, 1, 100),
                   static_cast<unsigned>((grain.seed >> 3) % 2147483647u));
}

// H.264 High at the camera's bit rate, B-frames, a key frame every GOP and
// no extra ones at scene changes: what a camera writes, one encoder thread
// so the bytes repeat.
std::vector<std::string> cameraCodecArgs(const Picture& picture) {
    const Grain& g = picture.grain;
    const int gop = std::max(1, static_cast<int>(std::lround(g.gopSeconds * picture.fpsNum / picture.fpsDen)));
    const int kbps = std::max(100, g.bitrateKbps);
    std::vector<std::string> args = {
        "-c:v", "libx264", "-preset", "superfast", "-profile:v", "high", "-pix_fmt", "yuv420p",
        "-b:v", cformat("%dk", kbps), "-maxrate", cformat("%dk", kbps * 6 / 5), "-bufsize", cformat("%dk", kbps),
        "-g", std::to_string(gop), "-keyint_min", std::to_string(gop), "-sc_threshold", "0",
        "-bf", std::to_string(std::max(0, g.bFrames)), "-threads", "1"};
    // Grain that no picture predicts: the anchors pay for it, the B-frames
    // between them are coded coarsely and nothing refers to them.
    if (g.bitsInP) args.insert(args.end(), {"-x264-params", "pbratio=2.2:b-pyramid=none"});
    return args;
}

// "between(t,a,b)+..." over the events of one kind; empty when there are none.
std::string during(const std::vector<PictureEvent>& events, LensEvent what) {
    std::string out;
    for (const PictureEvent& e : events)
        if (e.what == what) out += cformat("%sbetween(t,%.4f,%.4f)", out.empty() ? "" : "+", e.from, e.to);
    return out;
}

// A still texture twice the picture's size in each direction (blobs of
// colour at several scales, nothing periodic for the motion measure to
// mistake), seen through a window that pans slowly during the pan events
// and is thrown about during the shakes.
std::string sceneSource(const Picture& picture, double length) {
    const double w = picture.width;
    // Time from the frame number: the looped still carries no time of its own.
    const std::string t = cformat("(n*%d/%d)", picture.fpsDen, picture.fpsNum);
    const char* tc = t.c_str();
    std::string x = cformat("%.3f", w / 2), y = cformat("%.3f", picture.height / 2.0);
    for (const PictureEvent& e : picture.events) {
        const double span = std::max(e.to - e.from, 0.1);
        if (e.what == LensEvent::pan) {
            // There and back: half a sine, so the motion starts and ends gently.
            x += cformat("+%.3f*sin(PI*clip((%s-%.4f)/%.4f,0,1))", 0.3 * w, tc, e.from, span);
            y += cformat("+%.3f*sin(PI*clip((%s-%.4f)/%.4f,0,1))", 0.08 * w, tc, e.from, span);
        } else if (e.what == LensEvent::shake) {
            const std::string on = cformat("between(%s,%.4f,%.4f)", tc, e.from, e.to);
            x += cformat("+%s*%.3f*(sin(2*PI*5.3*%s)+sin(2*PI*7.9*%s+1.3)+0.7*sin(2*PI*12.1*%s+0.4))", on.c_str(),
                         0.03 * w, tc, tc, tc);
            y += cformat("+%s*%.3f*(sin(2*PI*6.1*%s+0.7)+sin(2*PI*9.7*%s+2.1)+0.7*sin(2*PI*13.3*%s))", on.c_str(),
                         0.025 * w, tc, tc, tc);
        }
    }
    const unsigned seed = static_cast<unsigned>(picture.grain.seed % 2147483647u);
    return cformat("color=c=0x%06x:s=%dx%d:r=%d/%d:d=%.6f,noise=alls=100:allf=u:all_seed=%u,gblur=sigma=%.2f,"
                   "eq=contrast=4:saturation=2.5:brightness=0.05,trim=end_frame=1,loop=loop=-1:size=1:start=0,"
                   "setpts=N*%d/%d/TB,crop=w=%d:h=%d:x='%s':y='%s'",
                   ((static_cast<unsigned>(picture.colour) >> 2) & 0x3f3f3fu) + 0x607080u, picture.width * 2,
                   picture.height * 2, picture.fpsNum, picture.fpsDen, length, seed, std::max(1.0, w / 80),
                   picture.fpsDen, picture.fpsNum, picture.width, picture.height, x.c_str(), y.c_str());
}

// What the lens and the camera do to the finished picture, frame code
// included: strong blur, a cap or a hand in front (with the sensor's own
// noise on them), and last the frozen stretches, where the camera writes the
// same picture again and again.
std::string lensFaults(const Picture& picture) {
    std::string out;
    if (std::string on = during(picture.events, LensEvent::blur); !on.empty())
        out += cformat(",gblur=sigma=%.2f:enable='%s'", picture.width / 24.0, on.c_str());
    if (std::string on = during(picture.events, LensEvent::black); !on.empty())
        out += ",drawbox=x=0:y=0:w=iw:h=ih:color=0x080808:t=fill:enable='" + on + "'";
    if (std::string on = during(picture.events, LensEvent::hand); !on.empty())
        out += ",drawbox=x=0:y=0:w=iw:h=ih:color=0x5a3a2c:t=fill:enable='" + on + "'";
    std::string covered = during(picture.events, LensEvent::black);
    if (std::string hand = during(picture.events, LensEvent::hand); !hand.empty())
        covered += (covered.empty() ? "" : "+") + hand;
    if (!covered.empty()) out += ",noise=alls=6:allf=t+u:all_seed=7:enable='" + covered + "'";
    int k = 0;
    for (const PictureEvent& e : picture.events) {
        if (e.what != LensEvent::frozen) continue;
        const long first = std::lround(e.from * picture.fpsNum / picture.fpsDen);
        const long last = std::lround(e.to * picture.fpsNum / picture.fpsDen);
        out += cformat(",split[fz%da][fz%db];[fz%da][fz%db]freezeframes=first=%ld:last=%ld:replace=%ld", k, k, k, k,
                       first, last, first);
        ++k;
    }
    return out;
}

}  // namespace

Result<Ffmpeg> Ffmpeg::locate() {
    fs::path exe = process::findExecutable({"/usr/bin/ffmpeg", "/usr/local/bin/ffmpeg", "/opt/homebrew/bin/ffmpeg"});
    if (exe.empty()) return Error{"ffmpeg introuvable"};
    return Ffmpeg(exe);
}

Status Ffmpeg::run(const std::vector<std::string>& args, const std::string& target) const {
    std::vector<std::string> full = {"-nostdin", "-y", "-v", "error", "-filter_threads", "1"};
    full.insert(full.end(), args.begin(), args.end());
    auto result = process::run(exe_, full);
    if (!result) return Error{"Impossible de lancer ffmpeg : " + result.error().message};
    if (result->exitCode != 0)
        return Error{cformat("ffmpeg a échoué (code %d) en écrivant %s", result->exitCode, target.c_str())};
    return Ok{};
}

Status writeFloatWav(const fs::path& file, const std::vector<float>& interleaved, int channels, int rate) {
    static_assert(std::endian::native == std::endian::little, "the WAV samples are written as they lie in memory");
    const uint64_t bytes = interleaved.size() * sizeof(float);
    if (bytes > 0xFFFFFFFFull - 64) return Error{"Fichier son trop long pour un WAV : " + file.string()};
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out) return Error{"Impossible d'écrire " + file.string()};
    out.write("RIFF", 4);
    put32(out, static_cast<uint32_t>(36 + bytes));
    out.write("WAVEfmt ", 8);
    put32(out, 16);
    put16(out, 3);  // IEEE float
    put16(out, static_cast<uint16_t>(channels));
    put32(out, static_cast<uint32_t>(rate));
    put32(out, static_cast<uint32_t>(rate * channels * 4));
    put16(out, static_cast<uint16_t>(channels * 4));
    put16(out, 32);
    out.write("data", 4);
    put32(out, static_cast<uint32_t>(bytes));
    out.write(reinterpret_cast<const char*>(interleaved.data()), static_cast<std::streamsize>(bytes));
    if (!out) return Error{"Impossible d'écrire " + file.string()};
    return Ok{};
}

Status encodeVideo(const Ffmpeg& ffmpeg, const fs::path& out, const std::string& target, const Picture& picture,
                   const std::vector<fs::path>& tracks, const SoundFormat& sound, const std::string& creationTime) {
    // A standing picture's label must fit its width.
    const int big = std::max(12, picture.width < picture.height ? picture.width / 5 : picture.height * 36 / 100);
    const int small = std::max(8, picture.height / 10);
    const int strip = framecode::stripHeight(picture.height);
    // The source stops by itself after the last frame (half a frame of margin
    // against rounding); "-frames:v" would also cut the tail of the sound.
    const double length = (static_cast<double>(picture.frames) - 0.5) * picture.fpsDen / picture.fpsNum;
    // The frame code is drawn one pixel per cell and scaled up without
    // smoothing, over the top of the picture; the caption sits below it.
    // Grain goes over the texts but under the frame code, which stays clean.
    const std::string grain = picture.grain.on() ? "," + grainFilter(picture.grain) : std::string();
    // A scene seen through a lens carries no big label: it would stand still
    // while the scene moves behind it.
    const bool scene = !picture.events.empty();
    // A phone's frames get their uneven times before anything is drawn, the
    // frame code's too, so the two still meet frame for frame.
    const std::string times = picture.variableRate ? frametimes::filters() + "," : std::string();
    // A bar sweeps across the fields of an interlaced picture, which are
    // then woven two by two: what moves shows combs until deinterlaced.
    const std::string sweep = picture.interlaced
                                  ? cformat("drawbox=x='mod(t*%d,iw)':y=0:w=iw/16:h=ih:color=white:t=fill,",
                                            picture.width * 2)
                                  : std::string();
    const std::string weave = picture.interlaced ? ",tinterlace=mode=interleave_top,setfield=tff" : std::string();
    // Anamorphic pixels: squeezed to the stored width, the pixel aspect widening them back.
    const std::string squeeze = picture.storedWidth > 0 ? cformat(",scale=%d:%d,setsar=%d/%d", picture.storedWidth,
                                                                  picture.height, picture.width, picture.storedWidth)
                                                        : std::string();
    std::string filter =
        "[0:v]" + times + sweep + (scene ? std::string() : drawText(picture.label, big, "(h-th)/2-h/12") + ",") +
        drawText(picture.caption, small, cformat("%d+h/40", strip)) + "," +
        drawText(cformat("%%{pts\\:hms\\:%.6f}", picture.clock), small, "h-th-h/15") + grain + weave + "[base];" +
        cformat("color=c=black:s=%dx2:r=%d/%d:d=%.6f,%sformat=gray,geq=lum='%s',scale=%d:%d:flags=neighbor[code];",
                framecode::cells, picture.fpsNum, picture.fpsDen, length, times.c_str(),
                framecode::geqExpression(picture.camera, picture.clip).c_str(), picture.width, strip) +
        "[base][code]overlay=0:0:shortest=1" + lensFaults(picture) + "," + recordingFilter(picture) + squeeze + "[v]";

    std::vector<std::string> args = {"-f", "lavfi", "-i",
                                     scene ? sceneSource(picture, length) : backgroundSource(picture, length)};
    for (const auto& t : tracks) {
        args.push_back("-i");
        args.push_back(t.string());
    }
    args.insert(args.end(), {"-filter_complex", filter, "-map", "[v]"});
    for (size_t i = 0; i < tracks.size(); ++i) args.insert(args.end(), {"-map", cformat("%zu:a", i + 1)});
    const std::string ext = extensionOf(out);
    if (ext == ".m2t") {
        // HDV: MPEG-2 with a GOP of half a second.
        args.insert(args.end(), {"-c:v", "mpeg2video", "-q:v", "3", "-g", "12", "-bf", "2", "-threads", "1"});
    } else if (picture.recording != Recording::sdr) {
        for (auto& a : tenBitCodecArgs(picture)) args.push_back(a);
    } else if (picture.grain.on()) {
        for (auto& a : cameraCodecArgs(picture)) args.push_back(a);
    } else {
        args.insert(args.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-tune", "stillimage", "-pix_fmt",
                                 "yuv420p", "-threads", "1"});
        // A camcorder's short GOP: half a second between key frames.
        if (isTransportStream(ext)) args.insert(args.end(), {"-g", "12"});
        if (picture.interlaced) args.insert(args.end(), {"-flags", "+ildct+ilme", "-x264-params", "tff=1"});
    }
    if (picture.variableRate) {
        args.insert(args.end(), {"-fps_mode", "passthrough", "-enc_time_base", "1/90000"});
        if (!isTransportStream(ext)) args.insert(args.end(), {"-video_track_timescale", "90000"});
    }
    if (tracks.empty()) {
        args.push_back("-an");
    } else {
        if (sound.pcmInVideo)
            args.insert(args.end(), {"-c:a", "pcm_s16le"});
        else if (ext == ".m2t")
            args.insert(args.end(), {"-c:a", "mp2", "-b:a", "192k"});
        else if (isTransportStream(ext))
            args.insert(args.end(), {"-c:a", "ac3", "-b:a", "192k"});
        else
            args.insert(args.end(), {"-c:a", "aac", "-b:a", sound.channels > 1 ? "160k" : "96k"});
        args.insert(args.end(), {"-ar", std::to_string(sound.sampleRate), "-ac", std::to_string(sound.channels)});
    }
    for (auto& a : metadataArgs(creationTime)) args.push_back(a);
    if (!picture.timecode.empty()) args.insert(args.end(), {"-timecode", picture.timecode});
    args.insert(args.end(), {"-f", muxerFor(ext), out.string()});
    Status encoded = ffmpeg.run(args, target);
    if (encoded && picture.rotation != 0) return writeRotation(ffmpeg, out, target, picture.rotation);
    return encoded;
}

Status writeThumbnail(const Ffmpeg& ffmpeg, const fs::path& out, const std::string& target, uint32_t colour) {
    return ffmpeg.run({"-f", "lavfi", "-i", cformat("color=c=0x%06x:s=160x120:d=0.04", colour), "-frames:v", "1",
                       "-f", "mjpeg", out.string()},
                      target);
}

Status encodeAudio(const Ffmpeg& ffmpeg, const fs::path& out, const std::string& target, const fs::path& wav,
                   const SoundFormat& sound, const std::string& creationTime) {
    const std::string ext = extensionOf(out);
    std::vector<std::string> args = {"-i", wav.string(), "-ar", std::to_string(sound.sampleRate), "-ac",
                                     std::to_string(sound.channels)};
    if (ext == ".wav") {
        args.insert(args.end(), {"-c:a", sound.pcmBits == 24 ? "pcm_s24le" : "pcm_s16le", "-f", "wav"});
    } else if (ext == ".flac") {
        args.insert(args.end(), {"-c:a", "flac", "-sample_fmt", sound.pcmBits == 24 ? "s32" : "s16", "-f", "flac"});
    } else if (ext == ".mp3") {
        args.insert(args.end(), {"-c:a", "libmp3lame", "-b:a", "192k", "-f", "mp3"});
    } else if (ext == ".m4a") {
        args.insert(args.end(), {"-c:a", "aac", "-b:a", "160k", "-f", "ipod"});
    } else if (ext == ".mkv" || ext == ".webm" || ext == ".ogg" || ext == ".opus") {
        const bool vorbis = sound.codec == "vorbis" || (ext == ".ogg" && sound.codec != "opus");
        if (vorbis)
            args.insert(args.end(), {"-c:a", "libvorbis", "-q:a", "4"});
        else
            args.insert(args.end(), {"-c:a", "libopus", "-b:a", "96k"});
        const char* muxer = ext == ".mkv" ? "matroska" : ext == ".webm" ? "webm" : "ogg";
        args.insert(args.end(), {"-f", muxer});
    } else {
        return Error{"Format de son inconnu : " + target};
    }
    // Only containers that carry a creation date get one.
    for (auto& a : metadataArgs(ext == ".m4a" ? creationTime : std::string())) args.push_back(a);
    args.push_back(out.string());
    return ffmpeg.run(args, target);
}

}  // namespace qv::setgen
