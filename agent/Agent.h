// SPDX-License-Identifier: Apache-2.0
#pragma once

// The agent: the state database, the features that live on it, and the socket to talk to them.

#include "Kiv/DispatchRecorder.h"
#include "Tessera/Database.h"
#include "agent/Commands.h"
#include "agent/EventLoop.h"
#include "agent/Server.h"
#include "agent/features/Features.h"

#include <memory>
#include <string>

namespace HobaAgent {

struct AgentOptions {
   std::string config = {};   // file of the startup configuration; empty: none
   std::string configDb = {}; // file of the config_db.json shape to import; empty: none
   std::string socket = defaultSocketPath();
   std::string sim = {}; // file that describes the simulated chip; empty: none
   // Shared memory in which the chip keeps what it holds; empty: it goes with the process.
   std::string chipMemory = {};
   bool cold = false; // the chip begins empty, whatever is in that memory
};

class Agent {
 public:
   // Listens at the socket, mounts, applies the startup configuration, makes the machines. Throws
   // Kiv::Exception for what is wrong with any of that, one line with file and place; nothing is left
   // behind then.
   explicit Agent( AgentOptions const & options );

   // Serves until SIGINT or SIGTERM, or until the loop is stopped.
   void run();
   // A machine asked for it: run() has returned, and whoever runs the agent starts another one.
   bool restartWanted() const { return restartWanted_; }

   EventLoop & loop() { return loop_; }
   Tessera::Database & database() { return database_; }
   Commands & commands() { return commands_; }

 private:
   void configure( AgentOptions const & options );
   void restart( Kiv::String const & reason );

   bool restartWanted_ = false;
   // In the order in which one stands on the other: the last goes first.
   EventLoop loop_;
   Kiv::DispatchRecorder recorder_;
   Tessera::Database database_;
   Commands commands_;
   std::unique_ptr< Features > features_;
   std::unique_ptr< Server > server_;
};

} // namespace HobaAgent
