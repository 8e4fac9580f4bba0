#include "FdStream.h"

#include <unistd.h>

#include <cerrno>
#include <ios>
#include <system_error>

namespace rpolicy {

FdInBuf::int_type FdInBuf::underflow() {
   if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
   ssize_t n;
   do {
      n = ::read(fd_, buf_.data(), buf_.size());
   } while (n < 0 && errno == EINTR);
   if (n < 0) {
      throw std::ios_base::failure("read", std::error_code(errno, std::generic_category()));
   }
   if (n == 0) return traits_type::eof();
   setg(buf_.data(), buf_.data(), buf_.data() + n);
   return traits_type::to_int_type(*gptr());
}

FdOutBuf::FdOutBuf(int fd) : fd_(fd) {
   setp(buf_.data(), buf_.data() + buf_.size());
}

FdOutBuf::~FdOutBuf() {
   // The tool flushes and checks before it exits; this only keeps a forgotten flush from
   // losing output.
   drain();
}

bool FdOutBuf::drain() {
   const char* p = pbase();
   while (error_ == 0 && p < pptr()) {
      const ssize_t n = ::write(fd_, p, static_cast<std::size_t>(pptr() - p));
      if (n < 0) {
         if (errno != EINTR) error_ = errno;
         continue;
      }
      if (n == 0) error_ = EIO;  // no progress and no reason: never retried in a loop
      p += n;
   }
   setp(buf_.data(), buf_.data() + buf_.size());
   return error_ == 0;
}

FdOutBuf::int_type FdOutBuf::overflow(int_type c) {
   if (!drain()) return traits_type::eof();
   if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
   *pptr() = traits_type::to_char_type(c);
   pbump(1);
   return c;
}

int FdOutBuf::sync() {
   return drain() ? 0 : -1;
}

}  // namespace rpolicy
