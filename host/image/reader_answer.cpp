// Answers of the picture reader: received, checked, mapped.
#include "host/image/reader_answer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace ovhost {
namespace {

/// Bytes of the pixels; 0 where a number is out of range or they are more than `most`.
std::uint64_t PixelBytes(const ReaderAnswer& answer, std::uint64_t most) {
  constexpr std::uint64_t kChannelBytes[] = {1, 2, 4, 2};
  if (answer.width < 1 || answer.height < 1 || answer.channels < 1 || answer.channels > 4 ||
      answer.type < 0 || answer.type > 3)
    return 0;
  const std::uint64_t area = static_cast<std::uint64_t>(answer.width) *
                             static_cast<std::uint64_t>(answer.height),
                      pixel = static_cast<std::uint64_t>(answer.channels) * kChannelBytes[answer.type];
  return area > most / pixel ? 0 : area * pixel;
}

/// Nobody can make the file shorter or write to it any more, whoever else has it open.
bool Seal(int file) {
  constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
  if (fcntl(file, F_ADD_SEALS, kSeals) == 0) return true;
  const int seals = fcntl(file, F_GET_SEALS);
  return seals >= 0 && (seals & kSeals) == kSeals;
}

}  // namespace

Received ReceiveAnswer(int socket, double seconds, ReaderAnswer& answer, int& file) {
  // In slices, each of which counts as no more than itself, however long the process was stopped in it.
  constexpr int kSliceMilliseconds = 500;
  file = -1;
  pollfd waiting{socket, POLLIN, 0};
  double left = std::max(seconds, 0.0) * 1000;
  for (;;) {
    const int slice = static_cast<int>(std::ceil(std::min<double>(left, kSliceMilliseconds)));
    const int ready = poll(&waiting, 1, slice);
    if (ready > 0) break;
    if (ready < 0 && errno != EINTR) return Received::kNothing;
    if (ready == 0) left -= slice;
    if (left <= 0) return Received::kTooLate;
  }

  iovec part{&answer, sizeof answer};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = CMSG_LEN(sizeof(int));  // no room for a second file, which would stay open
  ssize_t received;
  do received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  while (received < 0 && errno == EINTR);
  if (received < 0) return Received::kNothing;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header))
    if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS &&
        header->cmsg_len == CMSG_LEN(sizeof(int)))
      std::memcpy(&file, CMSG_DATA(header), sizeof file);
  const bool isWhole = received == static_cast<ssize_t>(sizeof answer) && !(message.msg_flags & MSG_TRUNC);
  answer.problem[sizeof answer.problem - 1] = 0;
  if (isWhole) return Received::kAnswer;
  if (file >= 0) close(file);
  file = -1;
  return Received::kNothing;
}

DecodedImage TakeAnswer(const ReaderAnswer& answer, int file, std::uint64_t mostBytes, std::string& problem) {
  if (!answer.isRead) {
    problem.assign(answer.problem, strnlen(answer.problem, sizeof answer.problem));
    if (problem.empty()) problem = "it can't be read";
    return {};
  }
  problem = "its reader was led astray by it";
  const std::uint64_t bytes = PixelBytes(answer, std::min<std::uint64_t>(mostBytes, PTRDIFF_MAX));
  struct stat status;
  if (bytes == 0 || file < 0 || !Seal(file) || fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<std::uint64_t>(status.st_size) < bytes)
    return {};
  // Private, so that who writes to an image has it alone.
  void* const pixels = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE, file, 0);
  if (pixels == MAP_FAILED) return problem = "there is no memory for its pixels", DecodedImage();
  problem.clear();
  return {answer.width, answer.height, answer.channels, static_cast<trChannelType>(answer.type),
          std::shared_ptr<unsigned char>(static_cast<unsigned char*>(pixels),
                                         [bytes](unsigned char* at) { munmap(at, bytes); })};
}

}  // namespace ovhost
