// sonvel-aec: command-line front end of the echo canceller library. Dispatches to the commands
// and turns their errors into one message and an exit status (2 for a mistake in the command
// line, 1 for an input or processing failure).
#include <iostream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/error.h"
#include "cli/output_file.h"
#include "sonvel_aec.h"

namespace {

void usage(std::ostream &os) {
    os << "usage:\n"
          "  sonvel-aec process MIC REF -o OUT [options]   remove the echo of REF from MIC\n"
          "  sonvel-aec analyze MIC REF [--json]           measure a recording pair and\n"
          "                                                recommend options\n"
          "  sonvel-aec demo [--rate 8000|16000] [--out DIR] [--api core|host] [-q]\n"
          "  sonvel-aec version\n"
          "\n"
          "'sonvel-aec COMMAND --help' describes a command's options.\n"
          "Exit status: 0 done, 1 input or processing failure, 2 command-line mistake\n"
          "(analyze: 3 when it cannot conclude).\n";
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
        usage(args.empty() ? std::cerr : std::cout);
        return args.empty() ? 2 : 0;
    }
    cli::install_cleanup_handlers();
    const std::string command = args[0];
    args.erase(args.begin());
    try {
        if (command == "process") return cli::process_command(args);
        if (command == "analyze" || command == "analyse") return cli::analyze_command(args);
        if (command == "demo") return cli::demo_command(args);
        if (command == "version" || command == "--version") {
            const AecVersion *v = nullptr;
            Sonvel_AEC_GetVersion(&v);
            std::cout << v->acProduct << " (" << v->acBuildTime << ", " << v->acToolchain << ")\n";
            return 0;
        }
        throw cli::UsageError("unknown command '" + command + "'");
    } catch (const cli::UsageError &e) {
        std::cerr << "sonvel-aec: " << e.what()
                  << "\n(see sonvel-aec " +
                         (command == "process" || command == "demo" || command == "analyze"
                              ? command + " "
                              : std::string()) +
                         "--help)\n";
        return 2;
    } catch (const std::exception &e) {
        std::cerr << "sonvel-aec: " << e.what() << "\n";
        return 1;
    }
}
