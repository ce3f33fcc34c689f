// sonvel-aec: command-line front end of the echo canceller library. Dispatches to the commands
// and turns their errors into one message and an exit status.
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "cli/args.h"
#include "cli/commands.h"
#include "cli/error.h"
#include "sonvel_aec.h"

namespace {

void usage(std::ostream &os) {
    os << "usage:\n"
          "  sonvel-aec process MIC.wav REF.wav -o OUT.wav [options]\n"
          "  sonvel-aec demo [--rate 8000|16000] [--out DIR] [--api core|host]\n"
          "  sonvel-aec version\n"
          "\n"
          "process: removes the echo of REF (what the loudspeaker played) from MIC (the "
          "microphone\n"
          "recording), 10 ms frame by frame. Mono files at 8000 or 16000 Hz.\n"
          "  -o, --output FILE               output WAV (written only when complete)\n"
          "  --trace FILE.csv                one row of internal state per 8 ms block\n"
          "  --resample                      accept other rates (44100, 48000 ...): convert to\n"
          "                                  16000 Hz and the output back\n"
          "  --align                         remove the canceller's latency from the output\n"
          "  --api core|host                 run through the core interface (default) or the\n"
          "                                  host plug-in descriptor\n"
          "  --config FILE                   parameters as 'name = value' lines (field names\n"
          "                                  of AecCfg); options below override it\n"
          "  --show-config                   print the parameters in effect\n"
          "  -q, --quiet                     no summary\n"
          "parameters:\n"
       << cli::param_option_help()
       << "\n"
          "demo: synthesises a conversation with echo, runs the canceller and writes mic.wav,\n"
          "ref.wav, near.wav, out.wav and trace.csv into DIR (default sonvel-demo).\n";
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
        usage(args.empty() ? std::cerr : std::cout);
        return args.empty() ? 2 : 0;
    }
    const std::string command = args[0];
    args.erase(args.begin());
    try {
        if (command == "process") return cli::process_command(args);
        if (command == "demo") return cli::demo_command(args);
        if (command == "version" || command == "--version") {
            const AecVersion *v = nullptr;
            Sonvel_AEC_GetVersion(&v);
            std::cout << v->acProduct << " (" << v->acBuildTime << ", " << v->acToolchain << ")\n";
            return 0;
        }
        throw cli::UsageError("unknown command '" + command + "'");
    } catch (const cli::UsageError &e) {
        std::cerr << "sonvel-aec: " << e.what() << "\n(see sonvel-aec --help)\n";
        return 2;
    } catch (const cli::Error &e) {
        std::cerr << "sonvel-aec: " << e.what() << "\n";
        return 1;
    } catch (const std::exception &e) {
        std::cerr << "sonvel-aec: " << e.what() << "\n";
        return 1;
    }
}
