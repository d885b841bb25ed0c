// Pictures that want to do harm: headers that lie, readers that are led astray, rights that are given up.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "core/image.h"
#include "core/ocio.h"
#include "host/image/encoded_picture.h"
#include "host/image/picture.h"
#include "host/image/picture_header.h"
#include "host/image/reader_answer.h"
#include "host/image/reader_process.h"
#include "host/image/reader_sandbox.h"
#include "tests/temp_file.h"

namespace {

using ovhost::PictureHeader;

/// Numbers of a file, of so many bytes.
std::string Big(std::uint64_t value, int bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(value >> 8 * bytes);
  return text;
}
std::string Little(std::uint64_t value, int bytes) {
  const std::string big = Big(value, bytes);
  return {big.rbegin(), big.rend()};
}
std::string Zeros(std::size_t count) { return std::string(count, '\0'); }

std::string Exr(int width, int height, char compression) {
  const auto attribute = [](const std::string& name, const std::string& type, const std::string& value) {
    return name + Zeros(1) + type + Zeros(1) + Little(value.size(), 4) + value;
  };
  return "v/1\x01" + Little(2, 4) +
         attribute("channels", "chlist",
                   "G" + Zeros(1) + Little(1, 4) + Zeros(4) + Little(1, 4) + Little(1, 4) + "Z" + Zeros(1) +
                       Little(2, 4) + Zeros(4) + Little(1, 4) + Little(1, 4) + Zeros(1)) +
         attribute("compression", "compression", std::string(1, compression)) +
         attribute("dataWindow", "box2i",
                   Little(-5, 4) + Little(0, 4) + Little(width - 6, 4) + Little(height - 1, 4)) +
         Zeros(1);
}

std::string Tiff(bool isLittle, std::uint32_t width, std::uint32_t height, int compression) {
  const auto number = [isLittle](std::uint64_t v, int bytes) {
    return isLittle ? Little(v, bytes) : Big(v, bytes);
  };
  const auto tag = [&](int id, std::uint32_t value) {
    return number(id, 2) + number(4, 2) + number(1, 4) + number(value, 4);
  };
  return (isLittle ? "II*" + Zeros(1) : "MM" + Zeros(1) + "*") + number(8, 4) + number(5, 2) +
         tag(256, width) + tag(257, height) + tag(258, 16) + tag(259, compression) + tag(277, 3) + Zeros(4);
}

struct Sample {
  const char* format;
  std::string name, bytes;
  int width, height, channels;
};

/// The shortest headers of all formats.
std::vector<Sample> Samples(int w, int h) {
  const std::string jpegStart = "\xff\xd8\xff\xe0" + Big(4, 2) + "ab" + "\xff\xff\xc2";
  const std::string siz = "\xff\x4f\xff\x51" + Big(47, 2) + Zeros(2) + Big(w + 3, 4) + Big(h + 4, 4) +
                          Big(3, 4) + Big(4, 4) + Big(w, 4) + Big(h, 4) + Zeros(8) + Big(3, 2);
  const std::string dpx = Zeros(768) + Zeros(4) + Big(w, 4) + Big(h, 4) + Zeros(23) + "\x0a" + Zeros(10);
  return {
      {"png", "a", "\x89PNG\r\n\x1a\n" + Big(13, 4) + "IHDR" + Big(w, 4) + Big(h, 4) + "\x10\x06" + Zeros(7),
       w, h, 4},
      {"jpeg", "a", jpegStart + Big(17, 2) + "\x08" + Big(h, 2) + Big(w, 2) + "\x03" + Zeros(9), w, h, 3},
      {"openexr", "a", Exr(w, h, 3), w, h, 2},
      {"tiff", "a", Tiff(true, w, h, 8), w, h, 3},
      {"tiff", "a", Tiff(false, w, h, 1), w, h, 3},
      {"hdr", "a", "#?RADIANCE\nX=1\n\n-Y " + std::to_string(h) + " +X " + std::to_string(w) + "\n", w, h, 3},
      {"psd", "a", "8BPS" + Big(1, 2) + Zeros(6) + Big(5, 2) + Big(h, 4) + Big(w, 4) + Big(16, 2) + Big(3, 2),
       w, h, 5},
      {"bmp", "a",
       "BM" + Zeros(12) + Little(40, 4) + Little(w, 4) + Little(-h, 4) + Little(1, 2) + Little(24, 2) +
           Zeros(20),
       w, h, 4},
      {"dds", "a", "DDS " + Little(124, 4) + Zeros(4) + Little(h, 4) + Little(w, 4) + Zeros(100), w, h, 4},
      {"gif", "a", "GIF89a" + Little(w, 2) + Little(h, 2) + Zeros(10), w, h, 4},
      {"webp", "a", "RIFF" + Zeros(4) + "WEBPVP8X" + Zeros(8) + Little(w - 1, 3) + Little(h - 1, 3), w, h, 4},
      {"jpeg2000", "a", siz, w, h, 3},
      {"jpeg2000", "a",
       Big(12, 4) + "jP  \r\n\x87\n" + Big(16, 4) + "ftyp" + Zeros(8) + Zeros(4) + "jp2c" + siz, w, h, 3},
      {"dpx", "a", "SDPX" + dpx.substr(4), w, h, 4},
      {"cineon", "a",
       "\x80\x2a\x5f\xd7" + Zeros(189) + Big(3, 1) + Zeros(4) + Big(10, 2) + Big(w, 4) + Big(h, 4), w, h, 3},
      {"sgi", "a", "\x01\xda\x01\x01" + Big(3, 2) + Big(w, 2) + Big(h, 2) + Big(3, 2), w, h, 3},
      {"iff", "a",
       "FOR4" + Zeros(4) + "CIMGAUTH" + Big(3, 4) + "abc" + Zeros(1) + "TBHD" + Big(32, 4) + Big(w, 4) +
           Big(h, 4) + Zeros(24),
       w, h, 4},
      {"pnm", "a", "P6 # who\n" + std::to_string(w) + "\n# x\n" + std::to_string(h) + " 65535\n", w, h, 3},
      {"targa", "a.TGA", Zeros(2) + "\x0a" + Zeros(9) + Little(w, 2) + Little(h, 2) + "\x18" + Zeros(1), w, h,
       4},
  };
}

bool ReadHeader(const std::string& bytes, const std::string& name, PictureHeader& header,
                std::string& problem) {
  return ovhost::ReadPictureHeader(ovhost::PictureMemoryBytes(bytes.data(), bytes.size()), name, header,
                                   problem);
}

TEST(PictureHeader, SaysWhatItIsAndNoMoreThanTheFileHolds) {
  for (const Sample& sample : Samples(20, 30)) {
    PictureHeader header;
    std::string problem;
    ASSERT_TRUE(ReadHeader(sample.bytes, sample.name, header, problem)) << sample.format << ": " << problem;
    EXPECT_STREQ(header.format, sample.format);
    EXPECT_EQ(header.width, sample.width) << sample.format;
    EXPECT_EQ(header.height, sample.height) << sample.format;
    EXPECT_EQ(header.channels, sample.channels) << sample.format;
  }
  // The largest that the headers can say, in files of some bytes.
  for (const Sample& sample : Samples(65500, 65500)) {
    PictureHeader header;
    std::string problem;
    EXPECT_FALSE(ReadHeader(sample.bytes, sample.name, header, problem)) << sample.format;
    EXPECT_NE(problem.find("can't hold 65500 x 65500"), std::string::npos)
        << sample.format << ": " << problem;
  }
  // An even picture may be as small as its compression makes it, and not smaller.
  const struct {
    std::string bytes;
    std::size_t length;
    bool isBelieved;
  } kLengths[] = {{Exr(2048, 2048, 0), 2048 * 2048 * 6, true},
                  {Exr(2048, 2048, 0), 2048 * 2048 * 5, false},
                  {Exr(2048, 2048, 3), 25000, true},
                  {Exr(2048, 2048, 3), 20000, false},
                  {Exr(2048, 2048, 9), 1000, true},
                  {Tiff(true, 2048, 2048, 8), 25000, true},
                  {Tiff(true, 2048, 2048, 8), 20000, false},
                  {Tiff(true, 2048, 2048, 1), 25000, false}};
  for (const auto& c : kLengths) {
    PictureHeader header;
    std::string problem;
    EXPECT_EQ(ReadHeader(c.bytes + Zeros(c.length), "a", header, problem), c.isBelieved) << c.length;
  }
}

TEST(PictureHeader, NothingElseIsAPicture) {
  const std::string raw = Tiff(true, 20, 30, 1);
  const std::string kOthers[] = {"",
                                 "#EXTM3U\nhttp://example.com/a.ts\n",
                                 Big(24, 4) + "ftypmp42" + Zeros(100),
                                 "<svg/>",
                                 "%PDF-1.4",
                                 raw.substr(0, 8) + "CR\x02" + raw.substr(11),
                                 "RIFF" + Zeros(4) + "AVI " + Zeros(100)};
  for (const std::string& bytes : kOthers) {
    PictureHeader header;
    std::string problem;
    EXPECT_FALSE(ReadHeader(bytes, "a.png", header, problem)) << bytes;
    EXPECT_FALSE(problem.empty());
  }
  // Cut short anywhere and with any byte changed, a header is read or refused.
  for (const Sample& sample : Samples(20, 30))
    for (std::size_t i = 0; i < sample.bytes.size(); ++i)
      for (const int byte : {0, 0x7f, 0xff}) {
        std::string bytes = sample.bytes;
        bytes[i] = static_cast<char>(byte);
        for (const std::string& text : {bytes, bytes.substr(0, i)}) {
          PictureHeader header;
          std::string problem;
          const bool isRead = ReadHeader(text, sample.name, header, problem);
          EXPECT_EQ(isRead, problem.empty());
          EXPECT_TRUE(!isRead || header.DecodedBytes() >= 1);
        }
      }
}

void Write(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

/// A layer that claims thousands of millions of rows, each with a number of its own.
std::string PsdOfALayer() {
  const std::string block = Big(1, 2) + Zeros(20000);
  std::string layer = Zeros(8) + Big(2000000000, 4) + Big(2000000000, 4) + Big(3, 2);
  for (int i = 0; i < 3; ++i) layer += Big(i, 2) + Big(block.size(), 4);
  layer += "8BIMnorm\xff" + Zeros(3) + Big(12, 4) + Zeros(12);
  const std::string info = Big(1, 2) + layer + block + block + block;
  return "8BPS" + Big(1, 2) + Zeros(6) + Big(3, 2) + Big(4, 4) + Big(4, 4) + Big(8, 2) + Big(3, 2) +
         Zeros(8) + Big(info.size() + 8, 4) + Big(info.size(), 4) + info + Zeros(4) + Zeros(2 + 48);
}

TEST(HostilePicture, CostsAMessageAndLittleMemory) {
  const std::string pipe = TempFile("pipe.png"), layers = TempFile("layers.psd");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  Write(layers, PsdOfALayer());
  std::vector<std::string> paths = {pipe, "/dev/zero", layers};
  for (const Sample& sample : Samples(65500, 65500)) {
    paths.push_back(TempFile("claims_" + std::to_string(paths.size()) + "_" + sample.name));
    Write(paths.back(), sample.bytes);
  }
  rusage before{}, after{};
  getrusage(RUSAGE_CHILDREN, &before);
  for (const std::string& path : paths) {
    trImage image;
    EXPECT_FALSE(image.ReadFile(path, nullptr)) << path;
  }
  getrusage(RUSAGE_CHILDREN, &after);
  // The greatest of all children so far, in KiB.
  EXPECT_LT(after.ru_maxrss, std::max<long>(before.ru_maxrss, 2 << 20));
}

/// What the reader sends, and what stands in its memory file.
struct Reply {
  const char* what;
  ovhost::ReaderAnswer answer;
  off_t bytes;
  bool isTaken;
};

ovhost::ReaderAnswer AnswerOf(int width, int height, int channels, int type) {
  ovhost::ReaderAnswer answer;
  answer.isRead = 1;
  answer.width = width;
  answer.height = height;
  answer.channels = channels;
  answer.type = type;
  return answer;
}

TEST(ReaderAnswer, IsTakenForWhatItIs) {
  constexpr int kMost = 0x7fffffff;
  const Reply kReplies[] = {
      {"honest", AnswerOf(4, 3, 2, 1), 48, true},
      {"more than promised", AnswerOf(4, 3, 2, 1), 5000, true},
      {"less than promised", AnswerOf(4, 3, 2, 1), 47, false},
      {"as much as is allowed", AnswerOf(1000, 1, 1, 0), 1000, true},
      {"more than is allowed", AnswerOf(1001, 1, 1, 0), 1001, false},
      {"no width", AnswerOf(0, 3, 2, 1), 48, false},
      {"two negative sides", AnswerOf(-4, -3, 2, 1), 48, false},
      {"no channels", AnswerOf(4, 3, 0, 1), 48, false},
      {"negative channels", AnswerOf(4, -3, -2, 1), 48, false},
      {"5000 channels", AnswerOf(4, 3, 5000, 1), 1 << 20, false},
      {"no such type", AnswerOf(4, 3, 2, 4), 48, false},
      {"a negative type", AnswerOf(4, 3, 2, -1), 48, false},
      {"a product beyond 64 bits", AnswerOf(kMost, kMost, 4, 2), 48, false},
  };
  for (const Reply& reply : kReplies) {
    const int file = memfd_create("reply", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(file, reply.bytes), 0);
    std::string problem;
    const ovhost::DecodedImage image = ovhost::TakeAnswer(reply.answer, file, 1000, problem);
    EXPECT_EQ(image.pixels != nullptr, reply.isTaken) << reply.what;
    EXPECT_EQ(problem.empty(), reply.isTaken) << reply.what;
    if (image.pixels) {
      // Whoever sent it can't change or shrink it under our hands.
      EXPECT_NE(ftruncate(file, 0), 0) << reply.what;
      EXPECT_LT(pwrite(file, "x", 1, 0), 0) << reply.what;
      image.pixels.get()[0] = 7;
    }
    close(file);
  }
  // Files that can't be sealed: none, on disc, writable elsewhere.
  std::string problem;
  const std::string path = TempFile("block");
  Write(path, Zeros(48));
  const int disc = open(path.c_str(), O_RDWR), shared = memfd_create("reply", MFD_ALLOW_SEALING);
  ASSERT_EQ(ftruncate(shared, 4096), 0);
  void* const mapped = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, shared, 0);
  for (const int file : {-1, disc, shared})
    EXPECT_FALSE(ovhost::TakeAnswer(AnswerOf(4, 3, 2, 1), file, 1000, problem).pixels) << file;
  munmap(mapped, 4096);
  close(disc);
  close(shared);
}

TEST(ReaderProcess, ThatHangsOrDiesIsLeft) {
  // Ready at once, and then: nothing more; the end; half an answer.
  const std::string ready = "head -c " + std::to_string(sizeof(ovhost::ReaderAnswer)) + " /dev/zero >&3\n";
  const struct {
    std::string script;
    const char* told;
  } kReaders[] = {{"#!/bin/sh\n" + ready + "exec sleep 1000\n", "no end within"},
                  {"#!/bin/sh\n" + ready + "head -c 16 <&3 >/dev/null\nexit 0\n", "doesn't survive"},
                  {"#!/bin/sh\n" + ready + "printf half >&3\nexec sleep 1000\n", "doesn't survive"},
                  {"#!/bin/sh\nexit 1\n", "doesn't start"}};
  const std::string program = TempFile("reader.sh");
  ovhost::PictureFile picture;
  picture.file = open("/dev/null", O_RDONLY);
  picture.header = {"png", 4, 3, 2, 1};
  for (const auto& reader : kReaders) {
    Write(program, reader.script);
    ASSERT_EQ(chmod(program.c_str(), 0700), 0);
    ovhost::ReaderProcess process(program, 0.5);
    std::string problem;
    EXPECT_FALSE(process.Read(picture, 1 << 20, problem).pixels);
    EXPECT_NE(problem.find(reader.told), std::string::npos) << problem;
  }
  close(picture.file);
}

TEST(EncodedPicture, IsWholeOrRefused) {
  ovhost::Picture picture;
  picture.width = 50;
  picture.height = 40;
  picture.channels = {"R", "G", "B"};
  for (int i = 0; i < 50 * 40 * 3; ++i) picture.pixels.push_back(static_cast<float>(i * 7919 % 1000) / 1000);
  for (const char* name : {"whole.png", "whole.jpg", "whole.tif", "whole.exr"}) {
    const std::string path = TempFile(name);
    ASSERT_EQ(ovhost::WritePicture(path, picture, {}), "") << name;
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(ovhost::EncodedProblem(path, bytes.data(), bytes.size(), 50, 40), "") << name;
    EXPECT_NE(ovhost::EncodedProblem(path, bytes.data(), bytes.size(), 50, 41), "") << name;
    for (std::size_t length = 0; length < bytes.size(); ++length)
      ASSERT_NE(ovhost::EncodedProblem(path, bytes.data(), length, 50, 40), "") << name << ' ' << length;
  }
  for (const char* name : {"wide.jpg", "wide.png"}) {
    EXPECT_EQ(ovhost::PictureSizeProblem(name, 65500, 1), "");
    EXPECT_NE(ovhost::PictureSizeProblem(name, 1, 1000001), "");
  }
  EXPECT_NE(ovhost::PictureSizeProblem("wide.jpeg", 65501, 1), "");
  EXPECT_EQ(ovhost::PictureSizeProblem("wide.exr", 1 << 20, 1), "");
}

TEST(ColourConfiguration, WaitsForNoTable) {
  const std::string folder = TempFile("colours"), table = folder + "/table.cube",
                    config = folder + "/config.ocio";
  std::filesystem::create_directory(folder);
  Write(config,
        "ocio_profile_version: 1\nsearch_path: .\nroles:\n  scene_linear: lin\ndisplays:\n  d:\n"
        "    - !<View> {name: v, colorspace: lin}\ncolorspaces:\n  - !<ColorSpace>\n    name: lin\n"
        "  - !<ColorSpace>\n    name: space\n    to_reference: !<GroupTransform>\n      children:\n"
        "        - !<FileTransform> {src: table.cube, interpolation: linear}\n");
  trOcio colours;
  ASSERT_EQ(mkfifo(table.c_str(), 0600), 0);
  EXPECT_FALSE(colours.Set(config, "space"));
  EXPECT_FALSE(colours.IsActive());
  std::filesystem::remove(table);
  Write(table, "LUT_1D_SIZE 2\n0 0 0\n1 2 3\n");
  ASSERT_TRUE(colours.Set(config, "space"));
  trFCol colour(0.5f, 0.5f, 0.5f);
  colours.Apply(colour);
  EXPECT_NEAR(colour.g, 1, 1e-4);
}

/// What a process in the sandbox can still do, a bit each.
int RightsLeft(const std::string& folder) {
  const std::string file = folder + "/written";
  const auto isDone = [](long result) { return result >= 0; };
  int rights = 0, bit = 1;
  const auto tell = [&](bool can) { rights |= can ? bit : 0, bit <<= 1; };
  tell(isDone(open(file.c_str(), O_WRONLY | O_CREAT, 0600)));
  tell(isDone(open((folder + "/kept").c_str(), O_RDWR)));
  tell(isDone(unlink((folder + "/kept").c_str())));
  tell(isDone(socket(AF_INET, SOCK_STREAM, 0)) || isDone(socket(AF_UNIX, SOCK_STREAM, 0)));
  tell(isDone(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr)));
  tell(isDone(kill(getppid(), 0)));
  tell(mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED);
  const pid_t child = fork();
  if (child == 0) _exit(0);
  tell(child > 0);
  char* const arguments[] = {const_cast<char*>("true"), nullptr};
  execv("/bin/true", arguments);
  // Reading stays.
  tell(!isDone(open((folder + "/kept").c_str(), O_RDONLY)));
  return rights;
}

TEST(ReaderSandbox, TakesAllButReading) {
  const std::string folder = TempFile("sandbox");
  std::filesystem::create_directory(folder);
  Write(folder + "/kept", "kept");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const bool isFiltered = ovhost::EnterReaderSandbox();
    const int rights = isFiltered ? RightsLeft(folder) : -1;
    _exit(write(ends[1], &rights, sizeof rights) == sizeof rights ? 0 : 1);
  }
  close(ends[1]);
  int rights = -2, status = 0;
  const ssize_t got = read(ends[0], &rights, sizeof rights);
  close(ends[0]);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(got, static_cast<ssize_t>(sizeof rights)) << "the child started another program";
  if (rights == -1) GTEST_SKIP() << "this kernel filters no system calls";
  EXPECT_EQ(rights, 0);
  EXPECT_TRUE(std::filesystem::exists(folder + "/kept"));
}

}  // namespace
