// SPDX-License-Identifier: Apache-2.0
#pragma once

// One connection to the agent: lines in, lines out.
//
//    {"id":7,"command":"get","path":"/"}      ->  {"id":7,"ok":true,"result":{...}}
//                                                 {"id":7,"ok":false,"error":{"message":"..."}}
//                                                 {"id":7,"ok":true,"result":...,"warning":"..."}
//    {"id":8,"command":"watch","path":"/"}    ->  {"id":8,"ok":true,...}, {"id":8,"event":{...}}, ...
//
// `id` is whatever the client chooses. A warning says that it was done, but steps failed upon it: how
// many, and the last of them as the system log has it. Requests are answered in their order. Nothing
// that a client sends, or does not read, harms anybody but itself: lines and answers are bounded, and a
// client that does not take its answers is not listened to until it does. One for which too much waits
// is dismissed: what waits is forgotten, from the next line on, and the last line that it is sent says
// why,
//
//    {"id":null,"ok":false,"error":{"message":"..."}}

#include "Kiv/Datum.h"
#include "agent/Commands.h"
#include "agent/EventLoop.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace HobaAgent {

struct ServerLimits {
   std::size_t clients = 64;            // at least 1; the one idle the longest makes room
   std::size_t line = maxRequestLine;   // bytes of a request
   std::size_t depth = 64;              // of a request's JSON
   std::size_t answer = maxAnswer;      // bytes of one answer
   std::size_t piece = 64 * 1024;       // bytes waiting, upon which some are sent at once
   std::size_t unread = 1024 * 1024;    // bytes waiting, above which no more requests are taken
   std::size_t queued = 2 * maxAnswer;  // bytes waiting, above which a client is dismissed
   std::size_t waiting = 4 * maxAnswer; // of all together, above which the one with most of it is
   std::size_t farewell = 64 * 1024;    // of a line under way that a dismissed client still gets
};

// What the connections of one server have in common.
struct Traffic {
   std::size_t waiting = 0; // bytes that they have not read, and what is kept in front of these
   std::uint64_t moves = 0; // counts what goes in or out
   std::function< void() > grown; // called when more is waiting than before
};

class Client {
 public:
   // Serving; dismissed, with a last line to send; or done with, and about to be forgotten.
   enum class State { serving, leaving, gone };

   // `gone` is called once when the connection is to be forgotten, from the loop and not from inside
   // of anything; it may destroy the client.
   using Gone = std::function< void() >;
   Client( EventLoop & loop, Commands const & commands, ServerLimits const & limits,
           Traffic & traffic, Fd fd, Gone gone );
   ~Client();
   Client( Client const & ) = delete;
   Client & operator=( Client const & ) = delete;

   // Sends {"id":id,"event":event}.
   void sendEvent( Kiv::Datum const & id, Kiv::Datum event );
   // Runs `work` when the connection ends.
   void atEnd( std::function< void() > work ) { atEnd_.push_back( std::move( work ) ); }
   // Serves it no more, and tells it so. May be called from inside of anything, as may drop(), which
   // tells it nothing.
   void dismiss( std::string_view reason );
   void drop();

   State state() const { return state_; }
   std::size_t waiting() const { return output_.size(); }
   // Whether it listens to something, and so may be silent with good reason.
   bool watches() const { return !atEnd_.empty(); }
   // The server's count of moves when the last one was this client's.
   std::uint64_t lastMove() const { return lastMove_; }

 private:
   void onReady( std::uint32_t events );
   void receive();
   void takeLines();
   void takeLine( std::string_view line );
   void answerError( Kiv::Datum const & id, std::string_view message );
   void sendLine( std::string line );
   void sendSome();
   void flushLater();
   void flush();
   void updateEvents();
   void endWatches();
   void count();
   bool serving() const { return state_ == State::serving; }
   std::size_t pending() const { return output_.size() - sent_; }
   bool paused() const { return pending() > limits_.unread; }

   EventLoop & loop_;
   Commands const & commands_;
   ServerLimits const & limits_;
   Traffic & traffic_;
   Fd fd_;
   Gone gone_;
   std::string input_;
   std::string output_;
   std::size_t sent_ = 0;    // bytes at the front of output_ that are gone already
   std::size_t tried_ = 0;   // of output_, when some was last sent, or tried to be
   std::size_t counted_ = 0; // of output_, in the traffic of all
   std::uint64_t lastMove_ = 0;
   std::uint32_t events_ = 0;
   State state_ = State::serving;
   bool inLine_ = false;   // of the line at sent_, the beginning has been sent
   bool skipping_ = false; // the rest of a line that is too long
   bool halted_ = false;   // lines of input_ wait until what waits in output_ is less
   bool ended_ = false;    // the client sends nothing more
   bool flushing_ = false; // flush() is due
   std::vector< std::function< void() > > atEnd_;
   // For work left with the loop, which may outlive this object.
   std::shared_ptr< Client * > self_ = std::make_shared< Client * >( this );
};

} // namespace HobaAgent
