// A PostgreSQL server for tests that are no C++: each line "new" on standard input makes an empty
// database, whose location goes to standard output; "stop" and "start" end the server at once and
// bring it back; "kill" kills it and brings it back. It ends with its input.
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "tests/e2e/postgres/postgres_server.h"

int main() {
  try {
    testing_host::PostgresServer server;
    for (std::string line; std::getline(std::cin, line);) {
      std::string answer = "done";
      if (line == "new") {
        answer = server.makeDatabase();
      } else if (line == "stop") {
        server.stopAtOnce();
      } else if (line == "kill") {
        server.killAndStart();
      } else if (line == "start") {
        server.start();
      } else {
        answer = "unknown: " + line;
      }
      std::cout << answer << std::endl;
    }
    return 0;
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "%s\n", fault.what());
    return 1;
  }
}
