#pragma once

// The operator's command, `ferrylink-backend`:
//
//   serve   --cert FILE --key FILE [--listen ADDR] [--port N] [--db PATH]
//   partner add --ip HOST --title TEXT [--port N] [--subtitle TEXT]
//               [--players TEXT] [--max-players TEXT] [--status on|off]
//   partner update ID [same options as add, each optional]
//   partner list [--json]        partner remove ID
//   block add HOST...            block list [--json]     block remove HOST...
//   message add --version V TEXT message list [--version V] [--json]
//   message remove ID
//   log list [--limit N] [--json]
//
// Every command takes --db PATH (default "ferrylink-backend.db", or the
// environment's FERRYLINK_BACKEND_DB).

#include <ostream>

namespace ferrylink::backend {

// Exit statuses of the command.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;     // the store, the socket or the certificate failed, or
                                           // the record to change is not there
inline constexpr int kExitBadArguments = 2;

// Parses and runs one command line. Listings and confirmations go to `out`,
// errors to `err` as one line each.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace ferrylink::backend
