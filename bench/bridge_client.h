// Clients of the command `velmoor` that call the tool "echo", one on its standard input and output and one on
// Streamable HTTP, both on one thread; and the programs that they need.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mcp/client/descriptor.h"
#include "mcp/client/http_reply_parser.h"

namespace bridge_bench {

// Ends with its owner.
class child {
 public:
    // The first word is the program. `environment` is put before the usual one.
    child(const std::vector<std::string>& words, const std::vector<std::string>& environment);
    ~child();
    child(const child&) = delete;
    child& operator=(const child&) = delete;

    int input() const { return input_.get(); }
    int output() const { return output_.get(); }
    int problems() const { return problems_.get(); }
    double resident_megabytes() const;

 private:
    pid_t pid_ = 0;
    mcp::descriptor input_, output_, problems_;
};

// Up to and without its end. Throws if it does not come.
std::string read_line(int from);

struct answer {
    std::int64_t id = 0;
    std::string text;
};

class client {
 public:
    virtual ~client() = default;
    virtual const char* name() const = 0;
    virtual const child& command() const = 0;
    // At most one call of a slot is under way.
    virtual void call(int slot, std::int64_t id) = 0;
    // What has come, after `limit` at most.
    virtual std::vector<answer> receive(std::chrono::milliseconds limit) = 0;
};

std::unique_ptr<client> make_stdio_client(const std::string& velmoor, const std::vector<std::string>& environment);
std::unique_ptr<client> make_http_client(const std::string& velmoor, const std::vector<std::string>& environment,
                                         int slots);

}  // namespace bridge_bench
