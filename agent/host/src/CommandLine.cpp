#include "CommandLine.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include "CheckCredentialCommand.h"
#include "ControlCommand.h"
#include "Message.h"
#include "QueryCommand.h"
#include "ReplayCommand.h"
#include "RunCommand.h"
#include "ScriptCommand.h"

namespace {

void AddTrace(CLI::App& command, std::vector<std::string>& components) {
    const auto split = [&components](const std::string& text) {
        components = CLI::detail::split(text, ',');
    };
    command
        .add_option_function<std::string>("--trace", split,
                                          "Write trace lines of these components to standard error")
        ->type_name("COMPONENT[,...]");
}

void AddConfig(CLI::App& command, std::string& file) {
    command.add_option("--config", file, "Configuration; without it a built-in one serves")
        ->type_name("FILE");
}

struct ReplayLine {
    ReplayOptions options;
    CLI::App* command;

    explicit ReplayLine(CLI::App& program)
        : command(program.add_subcommand("replay", "Runs the entry loop over capture files")) {
        command->add_option("CAPTURE", options.captures, "Capture files, pcap or pcapng, in order")
            ->required()
            ->type_name("");
        command->add_option("--out", options.out, "Directory for the log files; made if missing")
            ->type_name("DIR");
        AddConfig(*command, options.config);
        command
            ->add_option("--allow", options.allow,
                         "Open ports; without it those that answer in the capture")
            ->type_name("tcp/80,udp/53");
        command
            ->add_option("--local", options.local,
                         "The protected host's addresses; without it the capture tells them")
            ->type_name("CIDR[,CIDR...]");
        command
            ->add_option("--syslog", options.syslog,
                         "Send what is logged and found to a syslog receiver (udp://HOST:PORT,\n"
                         "tcp://HOST:PORT, unix:/PATH), or print the messages (-)")
            ->type_name("TARGET");
        command->add_flag("--tls", options.tls,
                          "Decrypt the secrets of TLS handshakes with agent.sslServers as well");
        command->add_flag("--json", options.json, "Print one JSON object a line");
        AddTrace(*command, options.trace);
        command->footer(
            "Runs the agent's own entry loop over capture files, on the captures' clock, and\n"
            "prints what was logged, found and blocked. The log goes to a temporary directory\n"
            "that is removed in the end, or to the directory that --out names; never to the\n"
            "directory that the configuration names for the live log. Messages are sent only\n"
            "where --syslog says so; with - they take standard output, and the report goes to\n"
            "standard error, or with --json both stand there as JSON lines.\n\n"
            "With --tls the captures are read once more for the handshakes of the servers that\n"
            "the configuration names in agent.sslServers. Log entries play no part in that. The\n"
            "secrets go to the file agent.keyLog, if there is one, and what the handshakes came\n"
            "to is printed.\n\n"
            "Examples:\n"
            "  velm_agent replay scan.pcap\n"
            "  velm_agent replay --out logs --local 192.0.2.10/32 --allow tcp/22,tcp/443 *.pcap\n"
            "  velm_agent replay --tls --config tls.conf.lua server.pcap\n"
            "  velm_agent replay --json scan.pcap | jq 'select(.kind == \"finding\")'");
    }
};

struct RunLine {
    RunOptions options;
    CLI::App* command;

    explicit RunLine(CLI::App& program)
        : command(program.add_subcommand("run", "The service: logs until a signal ends it")) {
        AddConfig(*command, options.config);
        command->add_flag("--check", options.check, "Look at the configuration and leave");
        command->add_flag("--dry-run", options.dryRun, "Block nobody; tell who would be");
        AddTrace(*command, options.trace);
        command->footer(
            "Takes the entries of the configured sources, logs them, looks for scans and blocks\n"
            "whom the configuration says. SIGTERM and SIGINT write what is held back and end it;\n"
            "SIGHUP reads configuration and policy anew. One service for a state directory.\n\n"
            "Exit status: 0 ended by a signal, 1 failed, 2 wrong usage, 78 the configuration is\n"
            "faulty, so that starting again makes no sense. With --check a faulty configuration\n"
            "gives 2.\n\n"
            "Examples:\n"
            "  velm_agent run --check --config /etc/velm/velm.conf.lua\n"
            "  velm_agent run --dry-run --config /etc/velm/velm.conf.lua");
    }
};

// The commands that ask the running service.
struct ControlLine {
    ControlOptions options;
    CLI::App* command;

    ControlLine(CLI::App& program, const char* request, const char* description)
        : command(program.add_subcommand(request, description)) {
        options.request = request;
        command->add_option("--config", options.config, "The running service's configuration")
            ->type_name("FILE");
    }
    void AddJson() { command->add_flag("--json", options.json, "Print JSON, one object a line"); }
    void AddAddress() {
        command->add_option("ADDRESS", options.argument, "The IPv4 address to let in again")
            ->required()
            ->type_name("");
    }
};

struct QueryLine {
    QueryOptions options;
    CLI::App* command;

    explicit QueryLine(CLI::App& program)
        : command(program.add_subcommand("query", "Prints the log records of a time window")) {
        command->add_option("--from", options.from, "Start of the window; without it, the oldest")
            ->type_name("T");
        command->add_option("--to", options.to, "End of the window; without it, the newest")
            ->type_name("T");
        command->add_option("--kind", options.kind, "Records of packet filters or payload filters")
            ->check(CLI::IsMember({"packet", "payload"}))
            ->type_name("KIND")
            ->capture_default_str();
        command->add_flag("--time", options.time,
                          "Put date and time of the first occurrence in front of each record");
        AddConfig(*command, options.config);
        command->add_option("--dir", options.directory, "Log directory, not the configured one")
            ->type_name("DIR");
        command->add_option("--name", options.name, "Log name, not the configured one")
            ->type_name("NAME");
        AddTrace(*command, options.trace);
        command->footer(
            "Prints the log records of a time window, as the log files hold them but without\n"
            "date and time. A time is seconds since the epoch, or YYYY-MM-DD[ HH:MM[:SS]] in\n"
            "local time, or the same with Z or +hh:mm behind it. Both ends belong to the\n"
            "window. The running service's own bookmarks are left alone.\n\n"
            "Examples:\n"
            "  velm_agent query --from '2026-11-13 21:30' --to '2026-11-13 22:00'\n"
            "  velm_agent query --dir logs --kind payload --time\n"
            "  velm_agent query --from 1794605400 | cut -d, -f10,13 | sort | uniq -c");
    }
};

struct CheckCredentialLine {
    CheckCredentialOptions options;
    CLI::App* command;

    explicit CheckCredentialLine(CLI::App& program)
        : command(program.add_subcommand("check-credential",
                                         "Tells whether a server's key loads, or why not")) {
        command->add_option("FILE", options.file, "The container: PEM text, or PKCS#12")
            ->required()
            ->type_name("");
        command->add_option("--type", options.type, "What the container is")
            ->required()
            ->check(CLI::IsMember({"PEM", "P12"}))
            ->type_name("PEM|P12");
        command
            ->add_option("--passphrase-file", options.passphraseFile,
                         "Passphrase, on the first line of this file; - is standard input")
            ->type_name("FILE");
        AddTrace(*command, options.trace);
        command->footer(
            "Loads a private key as the SSL key service does from a credential of the policy, and\n"
            "names the reason if it does not load. An encrypted key's passphrase is asked for at\n"
            "the terminal, unless a file is named for it; never give one on a command line, where\n"
            "other users see it. Exit status: 0 the key loads, 1 it does not, 2 wrong usage or\n"
            "unreadable file.\n\n"
            "Examples:\n"
            "  velm_agent check-credential --type PEM server.key.pem\n"
            "  velm_agent check-credential --type P12 --passphrase-file pass.txt server.p12");
    }
};

// The script's file and arguments are no options of the command, so CLI11 does not know them.
class ScriptFormatter : public CLI::Formatter {
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: velm_agent script [OPTIONS] FILE.lua [ARG...]\n";
    }
};

struct ScriptLine {
    AgentOptions options;
    CLI::App* command;

    explicit ScriptLine(CLI::App& program)
        : command(program.add_subcommand("script", "Runs a Lua script with the agent's globals")) {
        command->formatter(std::make_shared<ScriptFormatter>());
        command->prefix_command();
        command->add_flag("--testing", options.testing, "Offer the module velm.testing");
        command->add_option("--settings", options.settings, "Settings store, kept in this file")
            ->type_name("FILE");
        command->add_option("--events", options.events, "Append agent events as JSON lines")
            ->type_name("FILE");
        command->add_option("--policy", options.policy, "Policy document")->type_name("FILE");
        AddTrace(*command, options.trace);
        command->footer(
            "Runs a Lua 5.2 script with the agent's globals. What follows the file's name\n"
            "belongs to the script, which finds it in the table arg. The exit status is the\n"
            "one that the script gives to os.exit; 1 if it ends with an error, 2 if it can't\n"
            "be read. Settings and events stay in memory unless a file is named for them.\n\n"
            "Examples:\n"
            "  velm_agent script report.lua capture.pcap\n"
            "  velm_agent script --testing --trace ostrel test.lua");
    }

    int Run() const {
        std::vector<std::string> rest = command->remaining();
        if (rest.empty()) {
            PrintError("script", "FILE.lua is required; see velm_agent script --help");
            return kBadInput;
        }
        const std::string file = rest.front();
        if (file[0] == '-') {
            PrintError("script " + file, "unknown option; see velm_agent script --help");
            return kBadInput;
        }
        rest.erase(rest.begin());
        return RunScript(options, file, rest);
    }
};

int TellParseError(const CLI::App& program, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return CheckOutput(program.exit(error) == 0 ? kDone : kFailed);
    const std::vector<std::string> unknown = program.remaining();
    if (program.get_subcommands().empty() && !unknown.empty()) {
        PrintError(unknown.front(), "no such command or option; see velm_agent --help");
        return kBadInput;
    }
    PrintError("command line", error.what() + std::string("; see velm_agent --help"));
    return kBadInput;
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
    CLI::App program(
        "Velm agent: turns the packets that a firewall logs into text log files and answers\n"
        "questions about them. Results go to standard output and messages to standard error.\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage or unreadable input.",
        "velm_agent");
    program.set_version_flag("--version", "velm_agent " VELM_VERSION);
    program.require_subcommand(1);
    program.footer("Help on a command: velm_agent COMMAND --help");
    ReplayLine replay(program);
    RunLine run(program);
    QueryLine query(program);
    ControlLine status(program, "status", "Numbers of the running service");
    status.AddJson();
    ControlLine blocks(program, "blocks", "Addresses that the running service blocks");
    blocks.AddJson();
    ControlLine unblock(program, "unblock", "Lifts the running service's block of an address");
    unblock.AddAddress();
    CheckCredentialLine checkCredential(program);
    ScriptLine script(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return TellParseError(program, error);
    }
    if (*replay.command) return RunReplay(replay.options);
    if (*run.command) return RunService(run.options);
    if (*query.command) return RunQuery(query.options);
    for (const ControlLine* line : {&status, &blocks, &unblock}) {
        if (*line->command) return RunControl(line->options);
    }
    if (*checkCredential.command) return RunCheckCredential(checkCredential.options);
    return script.Run();
}
