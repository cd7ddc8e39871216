#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <memory>

#include "tests/tools/kvinv/Program.h"

/** A test that runs the real service. Its boards are at 127.0.70.0/24. */
class BoardServiceTest : public CommandTest
{
protected:
    /** Boards 4711 and 4712 at 127.0.70.1 and 127.0.70.2, or what `boards` says, with the port mapper on `port`; null
        when the service does not start. */
    static std::unique_ptr<Running> startService(std::string boards, const std::string& port,
                                                 const std::vector<std::string>& more = {})
    {
        if (boards.empty())
            boards =
                "{\"serialNumber\": 4711, \"boardType\": 6003, \"boardName\": \"IO-1\", \"systemName\": \"Rack A\", "
                "\"address\": \"127.0.70.1\", \"tree\": \"" +
                sample("single-board.json") +
                "\"}, {\"serialNumber\": 4712, \"boardType\": 6007, \"boardName\": \"IO-2\", \"systemName\": \"Rack "
                "A\", \"address\": \"127.0.70.2\", \"tree\": \"" +
                sample("boards/io-2.inv") + "\"}";
        char pattern[] = "/tmp/kvinv-boards-XXXXXX";
        const int descriptor = mkstemp(pattern);
        const std::string text = "{\"format\": \"korvel-board\", \"version\": 1, \"boards\": [" + boards + "]}";
        const bool written =
            descriptor >= 0 && write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (descriptor >= 0)
            close(descriptor);
        std::vector<std::string> arguments = {"--boards", pattern, "--portmap", port};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto service = std::make_unique<Running>(KVBOARDD_PROGRAM, arguments);
        const bool ready = written && service->waitFor("ready: ");
        std::filesystem::remove(pattern);
        return ready ? std::move(service) : nullptr;
    }
    static Circumstances with(std::vector<std::string> variables, const std::string& port)
    {
        Circumstances circumstances;
        circumstances.environment = std::move(variables);
        circumstances.environment.push_back("KVDAL_PORTMAP_PORT=" + port);
        return circumstances;
    }
};
