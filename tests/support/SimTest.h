// The base fixture of the native suites: every test starts on a freshly reset simulated machine, as a fresh process.
#pragma once

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/sim/SimWorld.h"
#include "service/HotFolderModule.h"
#include "supervisor/CommandQueue.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace hf::test {

// UTF-8 of a UTF-16 text, for readable assertions.
inline constexpr auto& U8 = ToUtf8;

// What a reference script of the source tree (which ctest names in HF_SOURCE_DIR) prints when python3 runs it with
// `arguments`; the test fails when the script does.
inline std::string ReferenceOutput(std::string const& script, std::string const& arguments)
{
    std::string const command = "python3 \"$HF_SOURCE_DIR/" + script + "\" " + arguments;
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (char chunk[4096]; pipe && std::fgets(chunk, sizeof chunk, pipe) != nullptr;) {
        output += chunk;
    }
    EXPECT_EQ(pipe ? pclose(pipe) : -1, 0) << command;
    return output;
}

class SimTest : public ::testing::Test {
protected:
    SimTest()
    {
        sim::TheWorld().Reset();
        StartProcess();
    }
    ~SimTest() override { sim::TheWorld().Reset(); }

    sim::World& world() { return sim::TheWorld(); }

    // Ends the process (its handles close) and starts a fresh one: registry, files, services and event log stay.
    void NewProcess()
    {
        sim::TheWorld().EndProcess();
        StartProcess();
    }

    // The event log as the viewer shows it, one rendered text per report, UTF-8.
    std::vector<std::string> RenderedEvents() const
    {
        std::vector<std::string> texts;
        for (auto const& record : sim::TheWorld().eventLog.Records()) {
            texts.push_back(U8(sim::EventLog::Render(record)));
        }
        return texts;
    }
    // Event ids in report order.
    std::vector<DWORD> EventIds() const { return sim::TheWorld().eventLog.Ids(); }
    // Handles opened since the process began (its process-wide objects excluded) and still open: a leak check.
    long HandlesLeftOpen() const { return static_cast<long>(sim::TheWorld().OpenHandleCount()) - baseline_; }

private:
    void StartProcess()
    {
        RecreateCommandQueue();
        RecreateModule();
        baseline_ = static_cast<long>(sim::TheWorld().OpenHandleCount());
    }

    long baseline_ = 0;
};

}  // namespace hf::test
