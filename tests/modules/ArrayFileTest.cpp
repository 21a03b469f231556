// Hdf5File and MatFile.
#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/ModuleBench.h"

namespace {

using testing::HasSubstr;

struct Form {
    const char *library, *module, *parameter, *format, *ending;
};
constexpr Form FORMS[] = {{"hdf5-file", "Hdf5File", "dataset", "hdf5", ".h5"},
                          {"mat-file", "MatFile", "variable", "mat", ".mat"}};

bool IsBuilt(const Form& form) {
    return std::filesystem::exists(std::string(SIGWEAVE_MODULE_DIR "/") + form.library + ".so");
}

struct Arrays : ModuleBench {
    Arrays(const Form& form, const std::string& path, const std::string& settings = "", int wired = 1)
        : ModuleBench(form.library, form.module), opened(Set("file=\"" + path + "\"\n" + settings)) {
        for (int i = 0; opened && i < wired; ++i) WireOutput(i);
    }
    bool opened;
};

// The exit code of the host; what it says goes to the file "told".
int Host(const std::string& arguments, const std::string& before = "") {
    return std::system((before + "LC_ALL=C.UTF-8 " SIGWEAVE_HOST " " + arguments + " >told 2>&1").c_str()) >>
           8;
}

// 10000 values of noise, which have all of their bits, with a name and a unit with a factor.
bool Record() {
    std::ofstream("take.graph")
        << "[noise]\nmodule=Generator\nform=noise\nrate=44100\nblock=999\nduration=0.2267573696145125\n"
           "unit=\"m s^-2 * 1e-003\"\nstart=2026-03-01T12:00:00.125Z\n[take]\nmodule=Recorder\nfile="
        << FreshFile("take.mcap") << "\n[lines]\nnoise.Signal=take.Signal\n";
    return Host("run take.graph") == 0;
}

TEST(ArrayFile, TakesBackWhatWasExported) {
    ASSERT_TRUE(Record()) << ReadText("told");
    ModuleBench player("player", "Player");
    ASSERT_TRUE(player.Set("file=take.mcap"));
    player.WireOutput(0);
    ASSERT_TRUE(player.Run()) << player.Error();
    const TCTypeInfo& before = player.Blocks(0)[0];
    ASSERT_EQ(player.Samples(0).size(), 10000U);
    for (const Form& form : FORMS) {
        if (!IsBuilt(form)) GTEST_SKIP() << form.module << " is not built";
        const std::string path = FreshFile(std::string("take") + form.ending);
        ASSERT_EQ(Host(std::string("export take.mcap --to ") + form.format), 0) << ReadText("told");
        Arrays arrays(form, path, "block=777");
        ASSERT_TRUE(arrays.opened && arrays.Run()) << arrays.Error();
        const TCTypeInfo& ti = arrays.Blocks(0)[0];
        EXPECT_TRUE(std::ranges::equal(arrays.Samples(0), player.Samples(0), {},
                                       std::bit_cast<std::uint64_t, double>,
                                       std::bit_cast<std::uint64_t, double>));
        EXPECT_EQ(ti.GetSamplerate(), before.GetSamplerate());
        EXPECT_EQ(ti.GetTimestamp(), before.GetTimestamp());
        EXPECT_STREQ(ti.GetSignalname(), before.GetSignalname());
        EXPECT_TRUE(ti.GetUnit() == before.GetUnit());
        EXPECT_THAT(arrays.States(0), testing::MatchesRegex("START( BUSY)+ STOP"));
        EXPECT_EQ(arrays.Blocks(0)[1].GetTimestamp(), before.GetTimestamp() + 777000.0 / 44100.0);
    }
}

// Files as other programs write them.
constexpr const char* MAKE = R"(
import h5py, numpy, scipy.io
wave = numpy.arange(3000, dtype='int16').reshape(1000, 3) - 1500
with h5py.File('other.h5', 'w') as f:
    group = f.create_group('run 1')
    group.attrs['dt'] = 0.001
    group.attrs['units'] = 'mV'
    data = group.create_dataset('wave', data=wave, chunks=(64, 2), compression='gzip', shuffle=True)
    data.attrs['units'] = numpy.bytes_('kPa')
    data.attrs['start_time'] = '2026-03-01T12:00:00Z'
    rows = f.create_dataset('rows', data=wave.T.astype('>f4'))
    rows.attrs['fs'] = numpy.int32(500)
    f['words'] = ['a', 'b']
    f['cube'] = numpy.zeros((2, 2, 2))
    f['empty'] = numpy.zeros(0)
    f['away'] = h5py.ExternalLink('take.h5', '/samples')
# As version 7.3 has it: HDF5 after 512 bytes, dimensions in reverse order, texts as numbers.
for name, text in ('v73.mat', numpy.bytes_), ('null.mat', None):
    with h5py.File(name, 'w', userblock_size=512) as f:
        for key, values, kind in (('wave', wave.T.astype('f8'), 'double'), ('rows', wave.astype('f4'), 'single'),
                                  ('fs', numpy.array([[1000.]]), 'double'), ('imaginary', numpy.zeros((1, 2), 'f8,f8'), 'double'),
                                  ('unit', numpy.array([[ord(c)] for c in 'kPa'], 'uint16'), 'char')):
            data = f.create_dataset(key, data=values, chunks=True, compression='gzip')
            if text:
                data.attrs['MATLAB_class'] = text(kind)
            else:
                type = h5py.h5t.C_S1.copy()
                type.set_size(len(kind))
                space = h5py.h5s.create(h5py.h5s.SCALAR)
                h5py.h5a.create(data.id, b'MATLAB_class', type, space).write(numpy.array(kind, 'S'), type)
        f.create_group('s')['a'] = numpy.zeros((1, 5))
    with open(name, 'r+b') as f:
        f.write(b'MATLAB 7.3 MAT-file'.ljust(116) + bytes(8) + b'\x00\x02IM')
for name, zip in ('other.mat', True), ('plain.mat', False):
    scipy.io.savemat(name, {'wave': wave, 'rows': wave.T.astype('float32'), 'fs': 1000, 'unit': 'kPa', 's': {'a': 1},
                            'imaginary': numpy.array([1j, 2])}, do_compression=zip)
)";

bool MakeOthers() {
    std::ofstream("make.py") << MAKE;
    return std::system("/usr/bin/python3 make.py >make.txt 2>&1") == 0;
}

TEST(ArrayFile, ReadsWhatOtherProgramsWrote) {
    if (!MakeOthers()) GTEST_SKIP() << "python3 with h5py and SciPy is not there: " << ReadText("make.txt");
    const struct {
        int form;
        const char *file, *settings, *name;
        double rate;
        const char* unit;
    } rows[] = {{0, "other.h5", "dataset=run 1/wave", "Channel 2", 1000, "m^-1 kg s^-2 * 1e+003"},
                {0, "other.h5", "dataset=/rows\nunit=V\nrate=9", "Channel 2", 9, "V"},
                {1, "other.mat", "variable=wave", "Channel 2", 1000, "m^-1 kg s^-2 * 1e+003"},
                {1, "plain.mat", "variable=rows", "Channel 2", 1000, "m^-1 kg s^-2 * 1e+003"},
                {1, "v73.mat", "variable=wave", "Channel 2", 1000, "m^-1 kg s^-2 * 1e+003"},
                {1, "v73.mat", "variable=wave\nchannels=columns", "Channel 2", 1000, "m^-1 kg s^-2 * 1e+003"},
                {1, "null.mat", "variable=rows\nunit=V", "Channel 2", 1000, "V"},
                {1, "null.mat", "variable=rows\nchannels=rows\nunit=V", "Channel 2", 1000, "V"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.file) + " " + row.settings);
        if (!IsBuilt(FORMS[row.form])) continue;
        Arrays arrays(FORMS[row.form], row.file, row.settings + std::string("\nblock=300"), 3);
        ASSERT_TRUE(arrays.opened && arrays.Run()) << arrays.Error();
        EXPECT_STREQ(arrays.Module().GetOutputName(1), row.name);
        EXPECT_STREQ(arrays.Module().GetOutputName(3), "Channels");
        ASSERT_EQ(arrays.Samples(2).size(), 1000U);
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ(arrays.Samples(1)[static_cast<std::size_t>(i)], 3 * i - 1499) << i;
        EXPECT_EQ(arrays.Blocks(1)[0].GetSamplerate(), row.rate);
        TCSI_Unit unit;
        unit.FromString(row.unit);
        EXPECT_TRUE(arrays.Blocks(1)[0].GetUnit() == unit);
    }
}

TEST(ArrayFile, SaysWhatItCannotRead) {
    if (!MakeOthers()) GTEST_SKIP() << "python3 with h5py and SciPy is not there: " << ReadText("make.txt");
    std::ofstream(FreshFile("words.h5")) << "These are words.\n";
    const struct {
        int form;
        const char *file, *settings, *message;
    } rows[] = {
        {0, "missing.h5", "", "file: missing.h5 does not exist"},
        {0, "words.h5", "", "file: words.h5 is no HDF5 file, or it is damaged"},
        {0, "other.h5", "", "dataset: '' is not valid; expected a dataset of numbers"},
        {0, "other.h5", "dataset=row",
         "dataset: 'row' is not valid; expected a dataset of numbers with one or two dimensions "
         "in other.h5; did you mean 'rows'?"},
        {0, "other.h5", "dataset=cube", "dataset: 'cube' is not valid"},
        {0, "other.h5", "dataset=away", "dataset: 'away' is not valid"},
        {0, "other.h5", "dataset=empty", "dataset: 'empty' of other.h5: it holds no samples"},
        {0, "other.h5", "dataset=rows\nunit=furlong", "unit: 'furlong' is not valid"},
        {0, "other.h5", "dataset=rows\nblock=1048576\nchannels=columns", "block: '1048576' is not valid"},
        {1, "words.h5", "", "file: words.h5 is no MAT file"},
        {1, "other.mat", "variable=waves",
         "variable: 'waves' is not valid; expected an array of real numbers in other.mat; "
         "did you mean 'wave'?"},
        {1, "other.mat", "variable=imaginary", "variable: 'imaginary' is not valid"},
        {1, "v73.mat", "variable=imaginary", "variable: 'imaginary' is not valid"},
        {1, "v73.mat", "", "variable: '' is not valid; expected an array of real numbers in v73.mat"},
    };
    for (const auto& row : rows) {
        if (!IsBuilt(FORMS[row.form])) continue;
        const Arrays arrays(FORMS[row.form], row.file, row.settings);
        EXPECT_FALSE(arrays.opened) << row.settings;
        EXPECT_THAT(arrays.Error(), HasSubstr(row.message)) << row.settings;
    }
}

// The address sanitizer reserves more addresses than any limit would leave it.
#ifdef __SANITIZE_ADDRESS__
constexpr const char* LIMITS = "ulimit -t 60; ";
#else
constexpr const char* LIMITS = "ulimit -v 2000000; ulimit -t 20; ";
#endif

// Each in a process of its own with little memory: it ends with a verdict, and nothing but our words is said.
TEST(ArrayFile, SurvivesDamage) {
    ASSERT_TRUE(Record()) << ReadText("told");
    for (const Form& form : FORMS) {
        if (!IsBuilt(form)) continue;
        const std::string path = FreshFile(std::string("take") + form.ending);
        ASSERT_EQ(Host(std::string("export take.mcap --to ") + form.format), 0) << ReadText("told");
        const std::string whole = ReadText(path);
        std::ofstream("damage.graph") << "[a]\nmodule=" << form.module << "\nfile=" << path
                                      << "\nrate=1\n[s]\nmodule=Statistics\n[lines]\na.Channel 1=s.Signal\n";
        for (std::size_t i = 0; i < 16; ++i) {
            std::string bytes = whole.substr(0, i % 2 == 0 ? whole.size() : whole.size() * (i + 1) / 18);
            for (std::size_t at = i * 7; i % 2 == 0 && at < std::min<std::size_t>(bytes.size(), 4096);
                 at += 61 + 16 * i)
                bytes[at] = static_cast<char>(bytes[at] ^ (1 << (at % 8)));
            std::ofstream(path, std::ios::binary) << bytes;
            const int code = Host("run damage.graph", LIMITS);
            EXPECT_TRUE(code >= 0 && code <= 2) << form.module << " " << i << ": " << code << "\n"
                                                << ReadText("told");
            EXPECT_THAT(ReadText("told"), testing::Not(HasSubstr("HDF5-DIAG"))) << i;
        }
    }
}

}  // namespace
