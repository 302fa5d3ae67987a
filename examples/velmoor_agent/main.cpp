// An agent of a few lines: connects to the MCP server in a running XR application, shakes hands, and makes a
// tour of what the application tells.
//
//     velmoor_agent [--exit] [--pictures DIRECTORY] [--watch FILE] [--film DIRECTORY] [http://127.0.0.1:8720]
//
// --exit ends the application in the last step. Pictures go to the present directory unless said otherwise. --watch
// also shows what the application prints, from the file that takes it, and --film keeps what the user sees meanwhile as
// numbered pictures.
//
// Exit code: 0 if all went well, 1 if a step of the tour failed, 2 if there was nobody to talk to.

#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "examples/velmoor_agent/application_view.h"
#include "examples/velmoor_agent/pictures.h"
#include "examples/velmoor_agent/tool_call.h"
#include "examples/velmoor_agent/tour.h"

namespace {

constexpr char kUsage[] =
    "usage: velmoor_agent [--exit] [--pictures DIRECTORY] [--watch FILE] [--film DIRECTORY] [URL]";

constexpr auto kServerComesUp = std::chrono::seconds(20);

struct Options {
    std::string url = "http://127.0.0.1:8720";
    std::string pictures = ".";
    std::string watched_file;
    std::string film;
    bool exit_at_end = false;
};

Options ReadOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--exit") {
            options.exit_at_end = true;
        } else if (option == "--pictures" && i + 1 < argc) {
            options.pictures = argv[++i];
        } else if (option == "--watch" && i + 1 < argc) {
            options.watched_file = argv[++i];
        } else if (option == "--film" && i + 1 < argc) {
            options.film = argv[++i];
        } else if (!option.empty() && option[0] != '-') {
            options.url = option;
        } else {
            throw std::invalid_argument(kUsage);
        }
    }
    return options;
}

bool WantsColours() {
    const char* refused = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (!refused || !*refused);
}

bool TakeTour(mcp::blocking_client& client, const Options& options, agent::Transcript& transcript) {
    agent::ApplicationView view(options.watched_file, transcript);
    agent::Film film(client, options.film);
    agent::Company company;
    company.while_waiting = [&] {
        view.Show();
        film.Shoot();
    };
    company.after_step = [&] {
        view.Settle();
        film.Shoot();
    };
    const auto steps = agent::MakeTour(options.pictures, options.exit_at_end);
    const bool went_well = agent::RunTour(client, steps, company, transcript);
    view.Summary();
    return went_well;
}

int Run(const Options& options) {
    const std::string& url = options.url;
    mcp::blocking_client client(url, {{"name", "velmoor_agent"}, {"version", "1.0"}});
    client.await_ready(kServerComesUp);
    const agent::json told = client.await_introduction(kServerComesUp);
    const agent::json server = told.value("serverInfo", agent::json::object());
    agent::Transcript transcript(std::cout, WantsColours());
    transcript.Say("Connected to " + url + ": " + server.value("name", "?") + " " + server.value("version", "?") +
                   ", protocol " + told.value("protocolVersion", "?"));
    return TakeTour(client, options, transcript) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::string(argv[1]) == "--help") return std::cout << kUsage << "\n", 0;
        return Run(ReadOptions(argc, argv));
    } catch (const std::exception& problem) {
        std::cerr << "velmoor_agent: " << problem.what() << "\n";
        return 2;
    }
}
