// A library to be loaded before a program: it writes down, in the file that OT_WRITE_LOG names,
// what the program writes to its configuration's store and when it makes it durable. A test then
// plays a power cut: what was not durable may be lost, in whole or in part.
//
// A record is one of 'w' (a write), 'd' (a durable one), 's' (all before is durable), then the
// offset and the length as 8 bytes each, then the bytes.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool is_store(int fd) {
  constexpr std::string_view wanted = "/configuration.mdb";
  char name[4096];
  const ssize_t length =
      readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), name, sizeof name);
  return length > 0 && std::string_view{name, static_cast<std::size_t>(length)}.ends_with(wanted);
}

void record(char what, off_t offset, std::string_view bytes) {
  static const int log = [] {
    const char* path = std::getenv("OT_WRITE_LOG");
    return path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  }();
  const std::uint64_t numbers[] = {static_cast<std::uint64_t>(offset), bytes.size()};
  std::string text{what};
  text.append(reinterpret_cast<const char*>(numbers), sizeof numbers).append(bytes);
  static auto* const plain_write = next<ssize_t(int, const void*, std::size_t)>("write");
  if (log >= 0 && plain_write(log, text.data(), text.size()) < 0) {
    abort();
  }
}

void record_write(int fd, off_t offset, const void* bytes, ssize_t written) {
  if (written > 0 && is_store(fd)) {
    const bool durable = (fcntl(fd, F_GETFL) & O_DSYNC) != 0;
    record(durable ? 'd' : 'w', offset,
           {static_cast<const char*>(bytes), static_cast<std::size_t>(written)});
  }
}

}  // namespace

extern "C" {

ssize_t pwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  static auto* const real = next<ssize_t(int, const void*, std::size_t, off_t)>("pwrite");
  const ssize_t written = real(fd, bytes, size, offset);
  record_write(fd, offset, bytes, written);
  return written;
}

ssize_t pwrite64(int fd, const void* bytes, std::size_t size, off_t offset) {
  return pwrite(fd, bytes, size, offset);
}

ssize_t writev(int fd, const iovec* parts, int count) {
  static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
  const off_t offset = is_store(fd) ? lseek(fd, 0, SEEK_CUR) : 0;
  const ssize_t written = real(fd, parts, count);
  std::string bytes;
  for (int i = 0; i < count; ++i) {
    bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  }
  record_write(fd, offset, bytes.data(), written);
  return written;
}

int fdatasync(int fd) {
  static auto* const real = next<int(int)>("fdatasync");
  const int result = real(fd);
  if (result == 0 && is_store(fd)) {
    record('s', 0, {});
  }
  return result;
}

int fsync(int fd) {
  static auto* const real = next<int(int)>("fsync");
  const int result = real(fd);
  if (result == 0 && is_store(fd)) {
    record('s', 0, {});
  }
  return result;
}

}  // extern "C"
