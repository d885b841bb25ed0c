// Foreign bytes as what the picture reader sends: a message of any length, with a memory file of any size.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/image/reader_answer.h"

namespace {

constexpr std::uint64_t kMostBytes = 1 << 20;

void Check(bool holds) {
  if (!holds) std::abort();
}

void Send(int socket, const std::uint8_t* data, std::size_t size, int file, int files) {
  iovec part{const_cast<std::uint8_t*>(data), size};
  alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (files > 0) {
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(static_cast<std::size_t>(files) * sizeof(int));
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(static_cast<std::size_t>(files) * sizeof(int));
    for (int i = 0; i < files; ++i)
      std::memcpy(CMSG_DATA(header) + static_cast<std::size_t>(i) * sizeof(int), &file, sizeof file);
  }
  sendmsg(socket, &message, MSG_NOSIGNAL);
}

}  // namespace

/// The first byte says how many files come along and whether they may be sealed, two more how long they are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const int file = memfd_create("fuzz", MFD_CLOEXEC | (data[0] & 4 ? 0u : MFD_ALLOW_SEALING));
  int ends[2];
  if (file < 0 || ftruncate(file, data[1] << 8 | data[2]) != 0 ||
      socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
    std::abort();
  Send(ends[1], data + 3, size - 3, file, data[0] & 3 ? (data[0] & 3) % 2 + 1 : 0);
  close(ends[1]);

  ovhost::ReaderAnswer answer;
  int received = -1;
  if (ovhost::ReceiveAnswer(ends[0], 1, answer, received) == ovhost::Received::kAnswer) {
    std::string problem;
    const ovhost::DecodedImage image = ovhost::TakeAnswer(answer, received, kMostBytes, problem);
    Check(problem.empty() == (image.pixels != nullptr));
    if (image.pixels) {
      // Every pixel is there, and stays there.
      Check(ftruncate(file, 0) != 0);
      constexpr std::uint64_t kChannelBytes[] = {1, 2, 4, 2};
      const std::uint64_t bytes =
          static_cast<std::uint64_t>(image.width) * static_cast<std::uint64_t>(image.height) *
          static_cast<std::uint64_t>(image.channels) * kChannelBytes[static_cast<int>(image.type)];
      Check(bytes <= kMostBytes);
      std::memset(image.pixels.get(), 1, bytes);
    }
  } else {
    Check(received < 0);
  }
  if (received >= 0) close(received);
  close(ends[0]);
  close(file);
  return 0;
}
