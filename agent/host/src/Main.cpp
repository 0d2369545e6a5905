#include <clocale>
#include <csignal>
#include <exception>

#include <wx/init.h>

#include "CommandLine.h"
#include "Message.h"
#include "velm/Log.h"

// Texts and file names are UTF-8, whatever the environment says, and numbers have a point.
static void FixLocale() {
    std::setlocale(LC_ALL, "C");
    std::setlocale(LC_CTYPE, "C.UTF-8");
}

int main(int argc, char** argv) {
    try {
        const wxInitializer wx;
        FixLocale();
        // A file that may grow no more is an error of the write, as a full disk is.
        std::signal(SIGXFSZ, SIG_IGN);
        VelmCore::InstallLog("velm_agent");
        return RunCommandLine(argc, argv);
    } catch (const std::exception& error) {
        PrintError("fault", error.what());
        return kFailed;
    }
}
