#include "modules/sound-file/SoundReader.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "modules/common/InputPath.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

// How the integers of a subtype are stored: they are read left-justified in 32 bits. A subtype that is not
// listed holds floating-point values.
struct IntegerFormat {
    int subtype;
    int bits;
    int bias;         // what the file adds to signed values
    int storedBytes;  // per sample; 0 for compressed data
};

constexpr IntegerFormat INTEGER_FORMATS[] = {
    {SF_FORMAT_PCM_S8, 8, 0, 1},        {SF_FORMAT_PCM_U8, 8, 128, 1},
    {SF_FORMAT_PCM_16, 16, 0, 2},       {SF_FORMAT_PCM_24, 24, 0, 3},
    {SF_FORMAT_PCM_32, 32, 0, 4},       {SF_FORMAT_ULAW, 16, 0, 1},
    {SF_FORMAT_ALAW, 16, 0, 1},         {SF_FORMAT_IMA_ADPCM, 16, 0, 0},
    {SF_FORMAT_MS_ADPCM, 16, 0, 0},     {SF_FORMAT_GSM610, 16, 0, 0},
    {SF_FORMAT_VOX_ADPCM, 16, 0, 0},    {SF_FORMAT_G721_32, 16, 0, 0},
    {SF_FORMAT_G723_24, 16, 0, 0},      {SF_FORMAT_G723_40, 16, 0, 0},
    {SF_FORMAT_NMS_ADPCM_16, 16, 0, 0}, {SF_FORMAT_NMS_ADPCM_24, 16, 0, 0},
    {SF_FORMAT_NMS_ADPCM_32, 16, 0, 0}, {SF_FORMAT_DWVW_12, 12, 0, 0},
    {SF_FORMAT_DWVW_16, 16, 0, 0},      {SF_FORMAT_DWVW_24, 24, 0, 0},
    {SF_FORMAT_DPCM_8, 8, 0, 0},        {SF_FORMAT_DPCM_16, 16, 0, 0},
    {SF_FORMAT_ALAC_16, 16, 0, 0},      {SF_FORMAT_ALAC_20, 20, 0, 0},
    {SF_FORMAT_ALAC_24, 24, 0, 0},      {SF_FORMAT_ALAC_32, 32, 0, 0},
};

const IntegerFormat* FindIntegerFormat(int format) {
    const auto* found =
        std::find_if(std::begin(INTEGER_FORMATS), std::end(INTEGER_FORMATS),
                     [&](const auto& row) { return row.subtype == (format & SF_FORMAT_SUBMASK); });
    return found != std::end(INTEGER_FORMATS) ? found : nullptr;
}

std::int64_t StoredBytes(int format) {
    const int subtype = format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_FLOAT) return 4;
    if (subtype == SF_FORMAT_DOUBLE) return 8;
    const IntegerFormat* integers = FindIntegerFormat(format);
    return integers != nullptr ? integers->storedBytes : 0;
}

// A header that was written before its length was known says one of these instead.
bool MeansUnknown(std::int64_t bytes) {
    return bytes == 0xFFFFFFFF || bytes == 0x7FFFFFFF;
}

struct PartSize {
    std::int64_t promised = 0;
    std::int64_t held = 0;
};

// What the library's log says about the part of the file that holds the samples when that is cut short, in a
// line such as "data : 40000 (should be 19978)". Empty when nothing is missing.
PartSize FindCutPart(const std::string& log) {
    constexpr const char* SOUND_PARTS[] = {"data", "SSND", "BODY", "Data Size", "riff"};
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        const std::size_t remark = line.find("(should be ");
        if (colon == std::string::npos || remark == std::string::npos || remark < colon) continue;
        const std::size_t first = line.find_first_not_of(" *");
        std::string name = line.substr(first, colon - first);
        name.erase(name.find_last_not_of(' ') + 1);
        if (std::find(std::begin(SOUND_PARTS), std::end(SOUND_PARTS), name) == std::end(SOUND_PARTS))
            continue;
        const PartSize part{std::strtoll(line.c_str() + colon + 1, nullptr, 0),
                            std::strtoll(line.c_str() + remark + 11, nullptr, 0)};
        const bool cut = part.held > 0 && part.held < part.promised && !MeansUnknown(part.promised);
        return cut ? part : PartSize{};
    }
    return {};
}

// Of a file that the library's log calls truncated without telling by how much: what its header says, less
// what belongs to the header itself. 0 where there is none.
std::int64_t PromisedBytes(const std::string& log) {
    constexpr struct {
        const char* part;
        std::int64_t ofHeader;
    } PARTS[] = {{"Extended II :", 12}, {"Sound Data :", 2}};
    if (log.find("Seems to be a truncated file") == std::string::npos) return 0;
    for (const auto& [part, ofHeader] : PARTS) {
        const std::size_t at = log.find(part);
        if (at != std::string::npos)
            return std::strtoll(log.c_str() + at + std::strlen(part), nullptr, 10) - ofHeader;
    }
    return 0;
}

// The samples that the header promises: the library itself only answers those that are there.
std::int64_t PromisedFrames(const std::string& log, const SF_INFO& info) {
    constexpr const char* RF64_REMARK = "value from 'ds64' chunk of ";
    const std::size_t remark = log.find(RF64_REMARK);
    if (remark != std::string::npos) {
        return std::strtoll(log.c_str() + remark + std::strlen(RF64_REMARK), nullptr, 10);
    }
    const PartSize part = FindCutPart(log);
    const std::int64_t perFrame = StoredBytes(info.format) * info.channels;
    if (part.promised == 0)
        return perFrame > 0 ? std::max<std::int64_t>(info.frames, PromisedBytes(log) / perFrame)
                            : info.frames;
    if (perFrame > 0) return info.frames + (part.promised - part.held + perFrame - 1) / perFrame;
    return static_cast<std::int64_t>(static_cast<double>(info.frames) * static_cast<double>(part.promised) /
                                     static_cast<double>(part.held));
}

std::string Log(SNDFILE* file) {
    std::string log(16384, '\0');
    const int length = sf_command(file, SFC_GET_LOG_INFO, log.data(), static_cast<int>(log.size()));
    log.resize(static_cast<std::size_t>(std::max(length, 0)));
    return log;
}

// What a recorder writes as the length when it does not know it yet, and more than anybody waits for.
constexpr double ENDLESS = 0x7F000000;

// A stream as the library wants to see it: of no end. It looks ahead and comes back within the header only.
class Stream {
 public:
    Stream(std::unique_ptr<tc::ByteInput> source, tc::Event& wish) : input(std::move(source)), cancel(wish) {}

    static SF_VIRTUAL_IO Operations() {
        return {[](void*) { return LENGTH; },
                [](sf_count_t offset, int whence, void* stream) {
                    return static_cast<Stream*>(stream)->Seek(offset, whence);
                },
                [](void* to, sf_count_t count, void* stream) {
                    return static_cast<Stream*>(stream)->Read(static_cast<char*>(to), count);
                },
                [](const void*, sf_count_t, void*) { return sf_count_t{0}; },
                [](void* stream) { return static_cast<Stream*>(stream)->position; }};
    }
    bool HasSome() const { return received > 0; }
    // Empty unless it broke off.
    const std::string& Failure() const { return failure; }

 private:
    static constexpr sf_count_t LENGTH = sf_count_t{1} << 40;
    static constexpr sf_count_t HEAD = 65536;

    sf_count_t Seek(sf_count_t offset, int whence) {
        position = offset + (whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position : LENGTH);
        return position;
    }

    sf_count_t Read(char* to, sf_count_t count) {
        if (position > received + HEAD) return 0;
        char skipped[512];
        while (received < position)
            if (Receive(skipped, std::min<sf_count_t>(position - received, sizeof skipped)) == 0) return 0;
        const sf_count_t known = static_cast<sf_count_t>(head.size());
        sf_count_t done = std::clamp<sf_count_t>(known - position, 0, count);
        std::copy_n(head.data() + std::min(position, known), done, to);
        if (position + done < received) return done;  // it is gone
        while (done < count) {
            const sf_count_t came = Receive(to + done, count - done);
            if (came == 0) break;
            done += came;
        }
        position += done;
        return done;
    }

    // Waits; 0 at the end.
    sf_count_t Receive(char* to, sf_count_t count) {
        while (true) {
            const auto size = static_cast<std::size_t>(count);
            const tc::ByteInput::Reading reading = input->Read({reinterpret_cast<std::byte*>(to), size});
            if (reading.outcome == tc::ByteInput::DATA)
                return Keep(to, static_cast<sf_count_t>(reading.bytes));
            if (reading.outcome == tc::ByteInput::FAILED) failure = std::strerror(reading.error);
            if (reading.outcome != tc::ByteInput::NOTHING) return 0;
            void* const handles[] = {cancel.GetHandle(), input->Handle()};
            if (tc::WaitForAnyHandle(handles, INFINITY) == 0) return 0;
        }
    }

    sf_count_t Keep(const char* bytes, sf_count_t count) {
        const sf_count_t kept = std::clamp<sf_count_t>(HEAD - received, 0, count);
        head.insert(head.end(), bytes, bytes + kept);
        received += count;
        return count;
    }

    std::unique_ptr<tc::ByteInput> input;
    tc::Event& cancel;
    std::vector<char> head;
    sf_count_t position = 0;
    sf_count_t received = 0;
    std::string failure;
};

}  // namespace

struct SoundReader::State {
    struct Closer {
        void operator()(SNDFILE* opened) const { sf_close(opened); }
    };

    std::string path;
    std::unique_ptr<Stream> stream;  // null: a file
    std::unique_ptr<SNDFILE, Closer> file;
    SF_INFO info{};
    const IntegerFormat* integers = nullptr;  // null: floating point
    double peak = 1.0;
    std::int64_t promised = 0;
    std::int64_t done = 0;
    std::vector<int> buffer;

    std::int64_t ReadIntegers(double* values, std::int64_t count);
};

SoundReader::SoundReader() = default;
SoundReader::~SoundReader() = default;
SoundReader::SoundReader(SoundReader&&) noexcept = default;
SoundReader& SoundReader::operator=(SoundReader&&) noexcept = default;

bool SoundReader::Open(const std::string& path, std::string& error) {
    auto opened = std::make_unique<State>();
    opened->path = path;
    error = tc::WhyNoInput(path);
    if (!error.empty()) return false;
    opened->file.reset(sf_open(path.c_str(), SFM_READ, &opened->info));
    return Accept(std::move(opened), error);
}

bool SoundReader::OpenStream(std::unique_ptr<tc::ByteInput> input, const std::string& name, tc::Event& cancel,
                             std::string& error) {
    auto opened = std::make_unique<State>();
    opened->path = name;
    opened->stream = std::make_unique<Stream>(std::move(input), cancel);
    SF_VIRTUAL_IO operations = Stream::Operations();
    opened->file.reset(sf_open_virtual(&operations, SFM_READ, &opened->info, opened->stream.get()));
    if (!opened->stream->HasSome()) {
        error = Bilingual("%1 gave nothing", "%1 lieferte nichts").With({name});
        return false;
    }
    return Accept(std::move(opened), error);
}

bool SoundReader::Accept(std::unique_ptr<State> opened, std::string& error) {
    const std::string path = opened->path;
    std::string reason;
    if (opened->file == nullptr) {
        reason = Bilingual("%1 is not a sound file; WAV, FLAC, Ogg, AIFF and the like can be read (%2)",
                           "%1 ist keine Tondatei; lesbar sind WAV, FLAC, Ogg, AIFF und dergleichen (%2)")
                     .With({path, sf_strerror(nullptr)});
    }
    if (reason.empty() && (opened->info.frames <= 0 || opened->info.samplerate <= 0))
        reason = Bilingual("%1 holds no samples; copy or record it again",
                           "%1 enthält keine Abtastwerte; kopieren Sie sie neu, oder nehmen Sie sie neu auf")
                     .With({path});
    if (!reason.empty()) {
        error = reason;
        return false;
    }
    opened->integers = FindIntegerFormat(opened->info.format);
    if (opened->stream == nullptr)
        opened->promised = PromisedFrames(Log(opened->file.get()), opened->info);
    else if (static_cast<double>(opened->info.frames) * opened->info.channels *
                 static_cast<double>(StoredBytes(opened->info.format)) >=
             ENDLESS)
        opened->info.frames = SF_COUNT_MAX;
    else
        opened->promised = opened->info.frames;
    double peak = 1.0;
    if (opened->stream == nullptr &&
        sf_command(opened->file.get(), SFC_GET_SIGNAL_MAX, &peak, sizeof(peak)) == SF_TRUE &&
        std::isfinite(peak)) {
        opened->peak = std::max(1.0, peak);
    }
    state = std::move(opened);
    return true;
}

int SoundReader::Channels() const {
    return state->info.channels;
}

double SoundReader::Samplerate() const {
    return state->info.samplerate;
}

std::int64_t SoundReader::Frames() const {
    return state->info.frames == SF_COUNT_MAX ? -1 : static_cast<std::int64_t>(state->info.frames);
}

double SoundReader::RangeMinimum() const {
    const IntegerFormat* integers = state->integers;
    return integers == nullptr ? -state->peak : integers->bias - std::ldexp(1.0, integers->bits - 1);
}

double SoundReader::RangeMaximum() const {
    const IntegerFormat* integers = state->integers;
    return integers == nullptr ? state->peak : integers->bias + std::ldexp(1.0, integers->bits - 1) - 1.0;
}

std::int64_t SoundReader::Read(double* values, std::int64_t count) {
    const std::int64_t read = state->integers != nullptr ? state->ReadIntegers(values, count)
                                                         : sf_readf_double(state->file.get(), values, count);
    state->done += std::max<std::int64_t>(read, 0);
    return std::max<std::int64_t>(read, 0);
}

std::int64_t SoundReader::State::ReadIntegers(double* values, std::int64_t count) {
    buffer.resize(static_cast<std::size_t>(count * info.channels));
    const std::int64_t read = sf_readf_int(file.get(), buffer.data(), count);
    const int shift = 32 - integers->bits;
    const int bias = integers->bias;
    for (std::int64_t i = 0; i < read * info.channels; ++i) {
        values[i] = (buffer[static_cast<std::size_t>(i)] >> shift) + bias;
    }
    return read;
}

std::string SoundReader::Shortage() const {
    std::string decoder =
        sf_error(state->file.get()) != SF_ERR_NO_ERROR ? sf_strerror(state->file.get()) : "";
    if (state->stream != nullptr && !state->stream->Failure().empty()) decoder = state->stream->Failure();
    const std::string reason = decoder.empty() ? "" : ": " + decoder;
    const std::string held = std::to_string(state->done);
    if (state->stream == nullptr && Frames() < 0 &&
        (state->info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG) {
        return Bilingual("%1 breaks off: it has no end mark and holds %2 samples%3",
                         "%1 bricht ab: die Endmarke fehlt, enthalten sind %2 Abtastwerte%3")
            .With({state->path, held, reason});
    }
    if (Frames() >= 0 && state->done < state->promised) {
        return Bilingual("%1 breaks off: it promises %2 samples and holds %3%4",
                         "%1 bricht ab: versprochen sind %2 Abtastwerte, enthalten %3%4")
            .With({state->path, std::to_string(state->promised), held, reason});
    }
    if (decoder.empty()) return "";
    return Bilingual("%1 cannot be read after sample %2%3", "%1 ist nach Abtastwert %2 nicht lesbar%3")
        .With({state->path, held, reason});
}
