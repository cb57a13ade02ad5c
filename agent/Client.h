// SPDX-License-Identifier: Apache-2.0
#pragma once

// One connection to the agent: lines in, lines out.
//
//    {"id":7,"command":"get","path":"/"}      ->  {"id":7,"ok":true,"result":{...}}
//                                                 {"id":7,"ok":false,"error":{"message":"..."}}
//    {"id":8,"command":"watch","path":"/"}    ->  {"id":8,"ok":true,...}, {"id":8,"event":{...}}, ...
//
// `id` is whatever the client chooses. Requests are answered in their order. Nothing that a client
// sends, or does not read, harms anybody but itself: lines and answers are bounded, a client that
// does not take its answers is not listened to until it does, and one that does not take its events
// is dropped.

#include "Kiv/Datum.h"
#include "agent/Commands.h"
#include "agent/EventLoop.h"

#include <string>
#include <string_view>
#include <vector>

namespace HobaAgent {

struct ServerLimits {
   std::size_t clients = 64;
   std::size_t line = maxRequestLine;  // bytes of a request
   std::size_t depth = 64;             // of a request's JSON
   std::size_t answer = maxAnswer;     // bytes of one answer
   std::size_t unread = 1024 * 1024;   // bytes waiting, above which no more requests are taken
   std::size_t queued = 2 * maxAnswer; // bytes waiting, above which a client is dropped
};

class Client {
 public:
   // Called once when the connection is to be forgotten, from the loop and not from inside of
   // anything; it may destroy the client.
   using Gone = std::function< void() >;
   Client( EventLoop & loop, Commands const & commands, ServerLimits const & limits, Fd fd,
           Gone gone );
   ~Client();
   Client( Client const & ) = delete;
   Client & operator=( Client const & ) = delete;

   // Sends {"id":id,"event":event}. Drops the client if it does not read.
   void sendEvent( Kiv::Datum const & id, Kiv::Datum event );
   // Runs `work` when the connection ends.
   void atEnd( std::function< void() > work ) { atEnd_.push_back( std::move( work ) ); }
   std::size_t pending() const { return output_.size() - sent_; }

 private:
   void onReady( std::uint32_t events );
   void receive();
   void takeLines();
   void takeLine( std::string_view line );
   void answerError( Kiv::Datum const & id, std::string_view message );
   void sendLine( std::string line );
   void flushLater();
   void flush();
   void updateEvents();
   void drop();
   bool paused() const { return pending() > limits_.unread; }

   EventLoop & loop_;
   Commands const & commands_;
   ServerLimits const & limits_;
   Fd fd_;
   Gone gone_;
   std::string input_;
   std::string output_;
   std::size_t sent_ = 0; // bytes at the front of output_ that are gone already
   std::uint32_t events_ = 0;
   bool skipping_ = false; // the rest of a line that is too long
   bool ended_ = false;    // the client sends nothing more
   bool dropped_ = false;
   bool flushing_ = false; // flush() is due
   std::vector< std::function< void() > > atEnd_;
   // For work left with the loop, which may outlive this object.
   std::shared_ptr< Client * > self_ = std::make_shared< Client * >( this );
};

} // namespace HobaAgent
