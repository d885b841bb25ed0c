// The reader of picture files: answers requests until its socket closes.
#include <OpenImageIO/imageio.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "core/image.h"
#include "host/image/codec/reader_protocol.h"
#include "host/image/reader_sandbox.h"

namespace {

using ovhost::ReaderAnswer;
using ovhost::ReaderRequest;

/// What a picture may take by its display window alone, however little of it has pixels.
constexpr double kSmallPictureBytes = 1 << 28;

/// The most that a display window may take for each byte of the file.
constexpr double kGreatestCompression = 20000;

struct Failure {
  std::string text;
};

/// A rectangle of pixels, y downwards.
struct Window {
  std::int64_t x, y, width, height;
  bool operator==(const Window&) const = default;
};

OIIO::TypeDesc FileType(trChannelType type) {
  switch (type) {
    case trChannelType::kByte:
      return OIIO::TypeDesc::UINT8;
    case trChannelType::kShort:
      return OIIO::TypeDesc::UINT16;
    case trChannelType::kHalf:
      return OIIO::TypeDesc::HALF;
    default:
      return OIIO::TypeDesc::FLOAT;
  }
}

/// The smallest storage that holds the file's channels without loss, floats at most.
trChannelType StorageFor(const OIIO::TypeDesc& format) {
  if (format == OIIO::TypeDesc::UINT8) return trChannelType::kByte;
  if (format == OIIO::TypeDesc::UINT16) return trChannelType::kShort;
  if (format == OIIO::TypeDesc::HALF) return trChannelType::kHalf;
  return trChannelType::kFloat;
}

/// The first channel to read, and how many: R, G, B and A where the file names them, else the first ones.
void ChooseChannels(const OIIO::ImageSpec& spec, int& first, int& count) {
  first = 0;
  for (int i = 0; i + 2 < spec.nchannels; ++i)
    if (spec.channelnames[i] == "R" && spec.channelnames[i + 1] == "G" && spec.channelnames[i + 2] == "B") {
      first = i;
      break;
    }
  count = std::min(4, spec.nchannels - first);
  if (count == 4 && spec.alpha_channel != first + 3 && spec.nchannels > 4) count = 3;
}

/// What of a file becomes the picture: of OpenEXR the display window, which renderers crop their pixels from
/// and add a rim of pixels to; other formats and data mean the pixels that they have.
Window ShownWindow(const OIIO::ImageInput& input, const Window& data, bool isData) {
  const OIIO::ImageSpec& spec = input.spec();
  const Window display{spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  const bool counts = !isData && std::strcmp(input.format_name(), "openexr") == 0;
  return counts && display.width > 0 && display.height > 0 ? display : data;
}

/// Copies what of `from`, rows from the top, lies in the window of `to`, rows from the bottom.
void CopyWindow(const unsigned char* from, const Window& data, unsigned char* to, const Window& shown,
                std::size_t pixelBytes) {
  const std::int64_t left = std::max(data.x, shown.x),
                     right = std::min(data.x + data.width, shown.x + shown.width);
  if (left >= right) return;
  for (std::int64_t y = std::max(data.y, shown.y); y < std::min(data.y + data.height, shown.y + shown.height);
       ++y) {
    const std::int64_t source = (y - data.y) * data.width + left - data.x,
                       target = (shown.y + shown.height - 1 - y) * shown.width + left - shown.x;
    std::memcpy(to + target * pixelBytes, from + source * pixelBytes,
                static_cast<std::size_t>(right - left) * pixelBytes);
  }
}

/// Sets what isn't finite to 0 and counts it.
std::int64_t CountNotFinite(void* pixels, std::int64_t values, trChannelType type) {
  std::int64_t count = 0;
  if (type == trChannelType::kFloat) {
    auto* at = static_cast<float*>(pixels);
    for (std::int64_t i = 0; i < values; ++i)
      if (!std::isfinite(at[i])) at[i] = 0, ++count;
  } else if (type == trChannelType::kHalf) {
    auto* at = static_cast<std::uint16_t*>(pixels);
    for (std::int64_t i = 0; i < values; ++i)
      if ((at[i] & 0x7c00) == 0x7c00) at[i] = 0, ++count;
  }
  return count;
}

/// What the library says, with the file for the name that it knows it by.
std::string Told(std::string text, const std::string& name) {
  for (std::size_t at; (at = text.find(name)) != std::string::npos;)
    text.replace(at, name.size(), "the file");
  return text;
}

/// Reads an open file into a memory file, whose descriptor it returns.
int Read(const ReaderRequest& request, int file, ReaderAnswer& answer) {
  struct stat status;
  if (file < 0 || fstat(file, &status) != 0) throw Failure{"it isn't there"};
  const auto fileBytes = static_cast<double>(status.st_size);
  // Readers open by name, some of them more than once.
  const std::string path = "/proc/self/fd/" + std::to_string(file);

  OIIO::ImageSpec wishes;
  wishes.attribute("oiio:UnassociatedAlpha", 1);
  const auto input = OIIO::ImageInput::create(request.format, false);
  if (!input) throw Failure{"pictures of its kind can't be read"};
  OIIO::ImageSpec spec;
  if (!input->open(path, spec, wishes)) throw Failure{Told(input->geterror(), path)};
  if (spec.width < 1 || spec.height < 1 || spec.nchannels < 1 || spec.depth > 1)
    throw Failure{"it has no pixels that could be used"};
  int first, count;
  ChooseChannels(spec, first, count);
  const trChannelType type = StorageFor(spec.format);
  const OIIO::TypeDesc fileType = FileType(type);

  const Window data{spec.x, spec.y, spec.width, spec.height},
      shown = ShownWindow(*input, data, request.keepNotFinite);
  const bool isWhole = shown == data;

  // What the header claims is held against the file and the memory before anything is made for it.
  const std::size_t pixelBytes = count * fileType.size();
  const auto area = [](const Window& window) { return static_cast<double>(window.width) * window.height; };
  const double bytes = area(shown) * pixelBytes, dataBytes = area(data) * pixelBytes;
  const double held = fileBytes * kGreatestCompression;
  const std::string size = std::to_string(shown.width) + " x " + std::to_string(shown.height) + " pixels";
  if (bytes + (isWhole ? 0 : dataBytes) > static_cast<double>(request.mostBytes))
    throw Failure{size + " take more memory than there is"};
  if (!isWhole && bytes > std::max(held, kSmallPictureBytes))
    throw Failure{"a file of this length can't hold " + size};

  const auto length = static_cast<std::size_t>(bytes);
  const int memory = memfd_create("picture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (memory < 0 || ftruncate(memory, static_cast<off_t>(length)) != 0)
    throw Failure{"there is no memory for " + size};
  void* pixels = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
  if (pixels == MAP_FAILED) throw Failure{"there is no memory for " + size};
  bool isRead;
  if (isWhole) {
    // Files begin at the top, images at the bottom.
    const auto row = static_cast<OIIO::stride_t>(length / spec.height);
    auto* const top = static_cast<unsigned char*>(pixels) + row * (spec.height - 1);
    isRead = input->read_image(0, 0, first, first + count, fileType, top, row / spec.width, -row);
  } else {
    std::vector<unsigned char> cropped(static_cast<std::size_t>(dataBytes));
    isRead = input->read_image(0, 0, first, first + count, fileType, cropped.data());
    if (isRead) CopyWindow(cropped.data(), data, static_cast<unsigned char*>(pixels), shown, pixelBytes);
  }
  if (isRead && !request.keepNotFinite)
    answer.notFinite = CountNotFinite(pixels, static_cast<std::int64_t>(length / fileType.size()), type);
  munmap(pixels, length);
  if (!isRead) {
    close(memory);
    throw Failure{Told(input->geterror(), path)};
  }
  answer.isRead = 1;
  answer.width = static_cast<std::int32_t>(shown.width);
  answer.height = static_cast<std::int32_t>(shown.height);
  answer.channels = count;
  answer.type = static_cast<int>(type);
  return memory;
}

/// Sends the answer, and the memory file with it.
bool Send(const ReaderAnswer& answer, int memory) {
  iovec part{const_cast<ReaderAnswer*>(&answer), sizeof answer};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  if (memory >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &memory, sizeof memory);
  }
  return sendmsg(ovhost::kReaderSocket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof answer);
}

/// Takes a request and the file that comes with it, else -1. False at the end.
bool Receive(ReaderRequest& request, int& file) {
  iovec part{&request, sizeof request};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  if (recvmsg(ovhost::kReaderSocket, &message, MSG_CMSG_CLOEXEC) != static_cast<ssize_t>(sizeof request))
    return false;
  request.format[sizeof request.format - 1] = 0;
  file = -1;
  if (const cmsghdr* header = CMSG_FIRSTHDR(&message); header && header->cmsg_type == SCM_RIGHTS)
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
  return true;
}

int ReadOrTell(const ReaderRequest& request, int file, ReaderAnswer& answer) {
  int memory = -1;
  std::string problem;
  try {
    memory = Read(request, file, answer);
  } catch (const Failure& failure) {
    problem = failure.text;
  } catch (const std::bad_alloc&) {
    problem = "it takes more memory than its size explains";
  } catch (const std::exception& exception) {
    problem = exception.what();
  }
  if (!answer.isRead && problem.empty()) problem = "it can't be read";
  std::snprintf(answer.problem, sizeof answer.problem, "%s", problem.c_str());
  return memory;
}

/// Has the libraries make ready what they make once, while files may still be opened and code loaded.
void WarmUp() {
  OIIO::attribute("plugin_searchpath", "");
  OIIO::ImageInput::create("openexr", false);
}

}  // namespace

int main() {
  ovhost::EndWithSocket(ovhost::kReaderSocket);
  WarmUp();
  ovhost::EnterReaderSandbox();
  if (!Send({}, -1)) return 1;
  ReaderRequest request;
  for (int file = -1; Receive(request, file);) {
    ReaderAnswer answer;
    const int memory = ReadOrTell(request, file, answer);
    if (file >= 0) close(file);
    const bool isSent = Send(answer, memory);
    if (memory >= 0) close(memory);
    if (!isSent) break;
  }
  // Checks at the end, such as those of sanitizers, want rights that are given up.
  _exit(0);
}
