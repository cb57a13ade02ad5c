// SPDX-License-Identifier: Apache-2.0
#pragma once

// Unix stream sockets, and the socket at which the agent is found.

#include <cstddef>
#include <string>
#include <utility>

namespace HobaAgent {

// The longest request line that the agent takes, its end not counted.
inline constexpr std::size_t maxRequestLine = 1024 * 1024;
// The longest answer that it gives.
inline constexpr std::size_t maxAnswer = 32 * 1024 * 1024;

// A file descriptor, closed with its owner.
class Fd {
 public:
   Fd() = default;
   explicit Fd( int fd ) : fd_( fd ) {}
   Fd( Fd && other ) noexcept : fd_( std::exchange( other.fd_, -1 ) ) {}
   Fd & operator=( Fd && other ) noexcept {
      std::swap( fd_, other.fd_ );
      return *this;
   }
   ~Fd() { reset(); }

   int get() const { return fd_; }
   explicit operator bool() const { return fd_ >= 0; }
   void reset();

 private:
   int fd_ = -1;
};

// $HOBA_SOCKET if it is set, else hoba-agent.sock in $XDG_RUNTIME_DIR or /run.
std::string defaultSocketPath();

// A blocking connection to the agent. Throws Kiv::Exception: nobody there, not allowed, ...
Fd connectTo( std::string const & path );

// Listens at `path`, non-blocking, for this user only (mode 0600). A socket that nobody answers on
// is replaced. Throws Kiv::Exception if somebody does, if anything else is there, or if it cannot
// be made.
Fd listenAt( std::string const & path );

// "<what>: <the system's text for errno>".
std::string systemError( std::string const & what );

} // namespace HobaAgent
