#include "platform/sim/SimChildProcesses.h"

#include "WideText.h"
#include "platform/Constants.h"
#include "platform/sim/SimWorld.h"

namespace hf::sim {

void ChildProcess::Exit(DWORD code)
{
    if (!running) {
        return;
    }
    running = false;
    exitCode = code;
    // A hook may close pipes whose peers react at once; take the list first.
    auto hooks = std::move(exitHooks_);
    exitHooks_.clear();
    for (auto& hook : hooks) {
        hook();
    }
}

void ChildProcess::ExitAfter(DWORD delay, DWORD code)
{
    std::weak_ptr<ChildProcess> self = weak_from_this();
    TheWorld().After(delay, [self, code] {
        if (auto process = self.lock()) {
            process->Exit(code);
        }
    });
}

void ChildProcess::OnExit(std::function<void()> hook)
{
    exitHooks_.push_back(std::move(hook));
}

void ChildProcess::Terminate(DWORD code)
{
    if (running) {
        terminated = true;
    }
    Exit(code);
}

int ChildProcess::HandlesOpen() const
{
    auto object = kernelObject.lock();
    return object ? object->handleCount : 0;
}

void ChildProcesses::AddImage(std::u16string const& path, ImageBehaviour behaviour)
{
    images_.push_back(Image{path, std::move(behaviour)});
}

bool ChildProcesses::HasImage(std::u16string const& path) const
{
    return FindImage(path) != nullptr;
}

std::vector<std::shared_ptr<ChildProcess>> ChildProcesses::StartedFrom(std::u16string const& path) const
{
    std::vector<std::shared_ptr<ChildProcess>> found;
    for (auto const& process : started_) {
        if (EqualsIgnoringAsciiCase(process->imagePath, path)) {
            found.push_back(process);
        }
    }
    return found;
}

ChildProcesses::Image const* ChildProcesses::FindImage(std::u16string const& path) const
{
    for (auto const& image : images_) {
        if (EqualsIgnoringAsciiCase(image.path, path)) {
            return &image;
        }
    }
    return nullptr;
}

std::shared_ptr<ChildProcess> ChildProcesses::Start(std::u16string const& path, DWORD& error)
{
    Image const* image = path.empty() ? nullptr : FindImage(path);
    if (image == nullptr) {
        error = ERROR_FILE_NOT_FOUND;
        return nullptr;
    }
    auto process = std::make_shared<ChildProcess>();
    process->imagePath = image->path;
    process->processId = nextProcessId_;
    nextProcessId_ += 4;
    started_.push_back(process);
    return process;
}

void ChildProcesses::RunBehaviour(std::shared_ptr<ChildProcess> const& process) const
{
    Image const* image = FindImage(process->imagePath);
    if (image != nullptr && image->behaviour) {
        image->behaviour(process);
    }
}

}  // namespace hf::sim
