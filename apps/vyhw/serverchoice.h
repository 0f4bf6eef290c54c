#ifndef SERVERCHOICE_H
#define SERVERCHOICE_H

#include "linkrecords.h"
#include "serveraddress.h"

#include <CLI/App.hpp>
#include <chrono>
#include <optional>
#include <string>

class Console;

/// How long a server may take to be reached, or to answer.
constexpr std::chrono::milliseconds ServerPatience{3000};

/// Adds --multiport HOST[:PORT]; without it VY_MULTIPORT names the server, else it is the local
/// one. The text must live as long as the command.
CLI::Option *addServerOption(CLI::App &command, std::string &server);

/// The server as it was named; nothing, after an error line, when that is no address.
std::optional<multiportlink::ServerAddress> findServer(const std::string &server, Console &console);

/// "127.0.0.1:4002"
QString serverText(const multiportlink::ServerAddress &address);

/// What a server answers to a hello.
struct ServerAnswer
{
    multiportlink::Welcome welcome;
    double ms; ///< from the hello to the welcome
};

/// Asks the server whether it takes a client of this role, and leaves; waits for at most
/// ServerPatience. Nothing, after an error line, without a welcome.
std::optional<ServerAnswer> askServer(const multiportlink::ServerAddress &address,
                                      multiportlink::Role role, Console &console);

#endif // SERVERCHOICE_H
