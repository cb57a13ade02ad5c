// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace HobaOperator {

// Long enough for an instrumented build on a busy machine: only what hangs gets there.
inline constexpr std::chrono::seconds patience{ 40 };

// Asks until the answer is yes, or patience ends; the last answer.
bool eventually( std::function< bool() > const & answer );

// A program that runs beside the test, with what it says captured. It does not outlive this object,
// nor the test, however either ends.
class Process {
 public:
   // The first argument is the program; `environment` holds NAME=VALUE.
   Process( std::vector< std::string > const & arguments,
            std::vector< std::string > const & environment );
   ~Process();
   Process( Process const & ) = delete;
   Process & operator=( Process const & ) = delete;

   // Reads on until standard output has the text; false when the program ends or patience does.
   bool says( std::string_view text );
   void signal( int number ) const;
   // Waits for the end. The exit status, 128 and the signal that ended it, or -1 if it had to be
   // killed because it did not end.
   int finish();

   std::string const & out() const { return out_; }
   std::string const & err() const { return err_; }

 private:
   // One round of reading; false when both outputs are closed.
   bool read();

   pid_t pid_;
   int outFd_ = -1;
   int errFd_ = -1;
   std::string out_, err_;
};

} // namespace HobaOperator
