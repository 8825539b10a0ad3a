#include "SimTest.h"

#include "service/HotFolderModule.h"
#include "supervisor/CommandQueue.h"

namespace hf::test {

SimTest::SimTest()
{
    sim::TheWorld().Reset();
    RecreateCommandQueue();
    RecreateModule();
    baselineHandles_ = static_cast<long>(sim::TheWorld().OpenHandleCount());
}

SimTest::~SimTest()
{
    sim::TheWorld().Reset();
}

void SimTest::NewProcess()
{
    sim::TheWorld().EndProcess();
    RecreateCommandQueue();
    RecreateModule();
    baselineHandles_ = static_cast<long>(sim::TheWorld().OpenHandleCount());
}

std::vector<std::string> SimTest::RenderedEvents() const
{
    std::vector<std::string> texts;
    for (auto const& record : sim::TheWorld().eventLog.Records()) {
        texts.push_back(ToUtf8(sim::EventLog::Render(record)));
    }
    return texts;
}

sim::EventRecord SimTest::OnlyEvent(DWORD eventId) const
{
    auto const found = sim::TheWorld().eventLog.WithId(eventId);
    EXPECT_EQ(found.size(), 1u) << "reports of event " << eventId;
    return found.empty() ? sim::EventRecord{} : found.front();
}

}  // namespace hf::test
