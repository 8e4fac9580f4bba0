#pragma once
// Stream buffers over a file descriptor, for the tool's standard input and output.
//
// std::cin's default buffer reads through stdio and turns a read error into an ordinary end of
// file, so standard input that fails part-way (a directory, a device error) would read as a
// shorter, valid-looking input. These buffers report every failure: a failed read throws
// std::ios_base::failure carrying errno, as a file buffer does, and a failed write sets the
// stream's badbit and keeps errno for the message.

#include <array>
#include <streambuf>

namespace rpolicy {

class FdInBuf : public std::streambuf {
public:
   explicit FdInBuf(int fd) : fd_(fd) {}

protected:
   int_type underflow() override;

private:
   int fd_;
   std::array<char, 1 << 16> buf_;
};

class FdOutBuf : public std::streambuf {
public:
   explicit FdOutBuf(int fd);
   FdOutBuf(const FdOutBuf&) = delete;
   FdOutBuf& operator=(const FdOutBuf&) = delete;
   ~FdOutBuf() override;

   // errno of the first failed write, 0 while every write has succeeded. Once a write fails,
   // every later one fails too: output with a hole in it is no better than none.
   int error() const { return error_; }

protected:
   int_type overflow(int_type c) override;
   int sync() override;

private:
   bool drain();

   int fd_;
   int error_ = 0;
   std::array<char, 1 << 16> buf_;
};

}  // namespace rpolicy
