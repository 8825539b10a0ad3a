#!/usr/bin/env python3
"""Mutation check: does the native suite catch the faults it should?

Each mutant below is one small fault a developer could make in the product
(a comparison loosened, a constant changed, a call dropped, two steps
swapped, a return inverted). The check applies one mutant at a time to a
scratch copy of the working tree (build/mutants/src), rebuilds it
incrementally, runs the native test executables and reports which test
killed the mutant, or that it survived.

A mutant names its code by an exact snippet, not by a line number, so the
list survives edits elsewhere; a snippet that is not found exactly once is
reported STALE.

    python3 scripts/mutants.py                  run every mutant
    python3 scripts/mutants.py --only pending   one subsystem (or a,b,c)
    python3 scripts/mutants.py --mutant link-03 one mutant
    python3 scripts/mutants.py --list           the list, without building
    python3 scripts/mutants.py --sizes          line counts of product and tests
"""

import argparse
import filecmp
import os
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SCRATCH = os.path.join(ROOT, "build", "mutants")
SOURCE = os.path.join(SCRATCH, "src")
BUILD = os.path.join(SCRATCH, "native")
TEST_TIME_LIMIT = 60  # seconds per test executable

SUBSYSTEMS = [
    "entry", "settings", "tree", "pending", "control-pipe", "loop",
    "launcher", "link", "job", "queue", "store", "launch", "supervisor",
    "service", "registration",
]

# The suite that covers a subsystem most closely runs first, and a mutant it
# kills needs no other suite built or run.
HOME_SUITE = {
    "entry": "entry", "settings": "watcher", "tree": "watcher",
    "pending": "watcher", "control-pipe": "watcher", "loop": "watcherloop",
    "launcher": "acrobat", "link": "acrobat", "job": "acrobat",
    "queue": "supervisor", "store": "supervisor", "launch": "supervisor",
    "supervisor": "supervisor", "service": "service",
    "registration": "service",
}

H = "HotFolder/"
W = H + "watcher/"
A = H + "acrobat/"
S = H + "supervisor/"
V = H + "service/"

# (id, subsystem, file, original snippet, replacement, what the fault is)
MUTANTS = [
    # entry: command line, start-service, install-user, event reporting
    ("entry-01", "entry", H + "ProgramSwitches.cpp",
     "(argument[0] != u'-' && argument[0] != u'/')",
     "(argument[0] != u'-')",
     "switches written with a slash are ignored"),
    ("entry-02", "entry", H + "ProgramSwitches.cpp",
     "return text.size() >= keyword.size() &&",
     "return text.size() > keyword.size() &&",
     "a switch written exactly, with nothing after it, is ignored"),
    ("entry-03", "entry", H + "StartServiceAction.cpp",
     "if (!started && os::GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {",
     "if (!started) {",
     "a service already running is reported as a failed start"),
    ("entry-04", "entry", H + "StartServiceAction.cpp",
     "return started ? 1 : 0;",
     "return started ? 0 : 1;",
     "start-service exit code inverted"),
    ("entry-05", "entry", H + "Entry.cpp",
     "WriteRunEntry(events);",
     "static_cast<void>(events);",
     "-installuser does not write the Run entry"),
    ("entry-06", "entry", H + "InstallUserAction.cpp",
     "u\"\\\" -currentuser\"",
     "u\"\\\" -asservice\"",
     "the Run entry starts the watcher with the wrong switch"),
    ("entry-07", "entry", H + "Entry.cpp",
     "TheCommandQueue().Post(Command{CMD_STOP, {}});",
     "",
     "a failed module start does not stop the supervisor"),
    ("entry-08", "entry", H + "EventReporter.cpp",
     "return DecimalText(static_cast<std::int32_t>(os::GetLastError()));",
     "return DecimalText(static_cast<std::int32_t>(os::GetLastError() & 0xFFFF));",
     "error codes in event texts lose their high bits"),
    # settings: Desktop.ini rules and path rules
    ("settings-01", "settings", W + "HotFolderSpec.cpp",
     "field = JoinPath(baseDirectory, field);",
     "field = JoinPath(DirectoryOf(baseDirectory), field);",
     "relative settings resolved one folder too high"),
    ("settings-02", "settings", W + "HotFolderSpec.cpp",
     "if (field.empty()) {",
     "if (field.empty() && key[0] == u'S') {",
     "an empty InputFolder or OutputFolder counts as set"),
    ("settings-03", "settings", W + "HotFolderSpec.cpp",
     "if (os::PathCanonicalizeW(canonical, field.c_str())) {",
     "if (!os::PathCanonicalizeW(canonical, field.c_str())) {",
     "canonical form used only when canonicalising fails"),
    ("settings-04", "settings", W + "PathRules.cpp",
     "if (a.back() != u'\\\\') {",
     "if (a.back() != u'/') {",
     "a join doubles the backslash after a folder ending in one"),
    ("settings-05", "settings", W + "PathRules.cpp",
     "b.size())) == CSTR_LESS_THAN;",
     "b.size())) != CSTR_GREATER_THAN;",
     "path order loosened from < to <="),
    ("settings-06", "settings", W + "PathRules.cpp",
     "LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str()",
     "LOCALE_INVARIANT, 0, a.c_str()",
     "path order becomes case-sensitive"),
    ("settings-07", "settings", W + "PathRules.cpp",
     "return os::_wcsicmp(a.c_str(), b.c_str()) == 0;",
     "return a == b;",
     "path equality becomes case-sensitive"),
    # tree: hot folder tree, directory watches, change records
    ("tree-01", "tree", W + "HotFolderTree.cpp",
     "return CountBackslashes(name) == 1 &&",
     "return CountBackslashes(name) >= 1 &&",
     "a Desktop.ini deeper below a hot folder counts as its settings"),
    ("tree-02", "tree", W + "HotFolderTree.cpp",
     "++watch->second->useCount;",
     "static_cast<void>(watch);",
     "a second hot folder on an input folder does not count as a user"),
    ("tree-03", "tree", W + "HotFolderTree.cpp",
     "ReleaseDirectoryWatch(watcher, spec->InputFolder);",
     "",
     "removing a hot folder keeps its input folder's watch"),
    ("tree-04", "tree", W + "DirectoryWatch.cpp",
     "    ArmDirectoryWatch(watch, kWatchFilter, OnFolderChange, true);\n",
     "",
     "an input folder's read is not re-armed"),
    ("tree-05", "tree", W + "DirectoryWatch.cpp",
     "    ArmDirectoryWatch(root, kWatchFilter, OnRootChange, false);\n",
     "",
     "the root's read is not re-armed"),
    ("tree-06", "tree", W + "DirectoryWatch.cpp",
     "if (watch.useCount == 0 && !folder.empty()) {",
     "if (watch.useCount == 0 && folder.empty()) {",
     "an unused watch is not woken, so it never ends"),
    ("tree-07", "tree", W + "DirectoryWatch.cpp",
     "messageId = MSG_FILE_REMOVED;",
     "messageId = MSG_FILE_MODIFIED;",
     "a removal is reported with the modification message"),
    ("tree-08", "tree", W + "DirectoryWatch.cpp",
     "if (PathIEquals(prefix, root.path)) {",
     "if (prefix == root.path) {",
     "an input folder below the root, in other letter case, gets a watch"),
    ("tree-09", "tree", W + "ChangeRecords.cpp",
     "if (nameBytes > size_ - offset_ - kHeaderBytes) {",
     "if (nameBytes >= size_ - offset_ - kHeaderBytes) {",
     "a record that exactly fills the buffer is dropped"),
    ("tree-10", "tree", W + "DirectoryWatch.cpp",
     "ReportCompletionError(watch, errorCode);",
     "static_cast<void>(errorCode);",
     "a failed input folder read is not reported"),
    # pending: pending files, readiness, the next hot folder
    ("pending-01", "pending", W + "PendingFiles.cpp",
     "return age >= kSettleTimeMs ? 0 : kSettleTimeMs - age;",
     "return age >= 1000 ? 0 : 1000 - age;",
     "settle time 1000 ms instead of 2000"),
    ("pending-02", "pending", W + "PendingFiles.cpp",
     "        place->file.lastTouched = now;\n",
     "",
     "a file touched again does not restart its settle time"),
    ("pending-03", "pending", W + "PendingFiles.cpp",
     "        place->file.dispatchedTo.clear();\n",
     "",
     "a file rewritten after hand-over is not handed on again"),
    ("pending-04", "pending", W + "PendingFiles.cpp",
     "        Unlink(*place);\n        Append(*place);\n",
     "",
     "a file touched again keeps its old place in the queue"),
    ("pending-05", "pending", W + "InputFiles.cpp",
     "        case FILE_ACTION_MODIFIED:\n",
     "",
     "a modification does not touch the pending file"),
    ("pending-06", "pending", W + "InputFiles.cpp",
     "        case FILE_ACTION_REMOVED:\n        case FILE_ACTION_RENAMED_OLD_NAME:",
     "        case FILE_ACTION_REMOVED:",
     "a file renamed away stays pending"),
    ("pending-07", "pending", W + "InputFiles.cpp",
     "return first != specsByInput.end() && PathIEquals(probe->InputFolder, (*first)->InputFolder);",
     "return first != specsByInput.end();",
     "any file below the root counts as an input file"),
    ("pending-08", "pending", W + "InputFiles.cpp",
     "if (next == specsByInput.end() || !PathIEquals(probe->InputFolder, (*next)->InputFolder)) {",
     "if (next == specsByInput.end()) {",
     "a file is handed to hot folders of another input folder"),
    # control-pipe: the watcher's control pipe
    ("control-pipe-01", "control-pipe", W + "ControlPipe.cpp",
     "if (errorCode == 0 && bytesTransferred != 0) {",
     "if (errorCode == 0 && bytesTransferred == kCommandSize) {",
     "a short read ends the client instead of taking effect"),
    ("control-pipe-02", "control-pipe", W + "ControlPipe.cpp",
     "        ReadControlPipe(reader);\n        return;",
     "        return;",
     "the next read of a control client is not issued"),
    ("control-pipe-03", "control-pipe", W + "ControlPipe.cpp",
     "if (errorCode != ERROR_IO_PENDING) {",
     "if (errorCode != ERROR_BROKEN_PIPE) {",
     "the quiet close code is 109 instead of 997"),
    ("control-pipe-04", "control-pipe", W + "ControlPipe.cpp",
     "    os::CloseHandle(reader.pipe);\n",
     "",
     "a finished control client's pipe is never closed"),
    ("control-pipe-05", "control-pipe", W + "ControlPipe.cpp",
     "if (os::GetLastError() != ERROR_BROKEN_PIPE) {",
     "if (os::GetLastError() == ERROR_BROKEN_PIPE) {",
     "read failures reported exactly when they should not be"),
    ("control-pipe-06", "control-pipe", W + "ControlPipe.cpp",
     "constexpr DWORD kCommandSize = 4;",
     "constexpr DWORD kCommandSize = 2;",
     "commands read two bytes at a time"),
    ("control-pipe-07", "control-pipe", W + "ControlPipe.cpp",
     "PIPE_UNLIMITED_INSTANCES,",
     "1,",
     "the control pipe allows only one instance"),
    # loop: the watcher loop
    ("loop-01", "loop", W + "RunWatcher.cpp",
     "return commandWord_ == CMD_PAUSE || commandWord_ == CMD_STOP;",
     "return commandWord_ == CMD_STOP;",
     "pause no longer stops the watcher"),
    ("loop-02", "loop", W + "RunWatcher.cpp",
     "DWORD commandWord_ = CMD_STOP;",
     "DWORD commandWord_ = CMD_RUN;",
     "a watcher starts running before the service says so"),
    ("loop-03", "loop", W + "RunWatcher.cpp",
     "while (result == WAIT_IO_COMPLETION) {",
     "if (result == WAIT_IO_COMPLETION) {",
     "queued completions drained only once"),
    ("loop-04", "loop", W + "RunWatcher.cpp",
     "        ListenOnPipe(CreateControlPipeInstance(pipeName_), connects_);\n",
     "",
     "an accepted client's instance is not replaced"),
    ("loop-05", "loop", W + "RunWatcher.cpp",
     "                return left;\n",
     "                return INFINITE;\n",
     "a settling file waits for ever"),
    ("loop-06", "loop", W + "RunWatcher.cpp",
     "link_.SendJob(front.path, spec);\n                return 0;",
     "link_.SendJob(front.path, spec);\n                return INFINITE;",
     "after a job the loop waits for ever"),
    ("loop-07", "loop", W + "RunWatcher.cpp",
     "                // As service the Acrobat it started goes, even in the middle of a job.\n"
     "                link_.TerminateAcrobat();\n",
     "",
     "a stop does not end the Acrobat started as service"),
    ("loop-08", "loop", W + "RunWatcher.cpp",
     "for (int instance = 0; instance < 2; ++instance) {",
     "for (int instance = 0; instance < 1; ++instance) {",
     "only one listening instance at start"),
    ("loop-09", "loop", W + "RunWatcher.cpp",
     "if (AnotherWatcherListens(probeName)) {",
     "if (!AnotherWatcherListens(probeName)) {",
     "the already-running probe inverted"),
    ("loop-10", "loop", W + "RunWatcher.cpp",
     "service->ConnectWatcher(name);",
     "static_cast<void>(service);",
     "the watcher does not announce its pipe to the service"),
    # launcher: the Acrobat launcher
    ("launcher-01", "launcher", A + "AcrobatLauncher.cpp",
     "constexpr DWORD kValueCapacity = 256;",
     "constexpr DWORD kValueCapacity = 260;",
     "the path value's limit 259 characters instead of 255"),
    ("launcher-02", "launcher", A + "AcrobatLauncher.cpp",
     "return type == REG_SZ || type == REG_EXPAND_SZ;",
     "return type == REG_SZ;",
     "an expandable string path is refused"),
    ("launcher-03", "launcher", A + "AcrobatLauncher.cpp",
     " || (units > 0 && buffer[units - 1] != u'\\0')",
     "",
     "an unterminated path value is accepted"),
    ("launcher-04", "launcher", A + "AcrobatLauncher.cpp",
     "    os::CloseHandle(started.hThread);\n",
     "",
     "Acrobat's thread handle is never closed"),
    ("launcher-05", "launcher", A + "AcrobatLauncher.cpp",
     "os::CreateProcessW(writable.data(), fileName,",
     "os::CreateProcessW(nullptr, fileName,",
     "Acrobat is looked for by its file name alone"),
    ("launcher-06", "launcher", A + "AcrobatLauncher.cpp",
     "reporter.Report(EVENTLOG_ERROR_TYPE, MSG_READ_REGISTRY_VALUE_FAILED,",
     "reporter.Report(EVENTLOG_ERROR_TYPE, MSG_OPEN_REGISTRY_KEY_FAILED,",
     "an unreadable path value reported with the wrong message"),
    # link: the plug-in link, pipe names
    ("link-01", "link", A + "PlugInLink.cpp",
     "if (os::GetTickCount() - launchTick_ > kPlugInWaitLimit) {",
     "if (os::GetTickCount() - launchTick_ >= kPlugInWaitLimit) {",
     "the plug-in wait limit loosened from > to >="),
    ("link-02", "link", A + "PlugInLink.cpp",
     "timeout = kPlugInRetryInterval;",
     "timeout = 1000;",
     "the plug-in pipe polled every 1000 ms instead of 2000"),
    ("link-03", "link", A + "PlugInLink.cpp",
     "if (!asService_) {\n            // The user goes on using this Acrobat",
     "if (asService_) {\n            // The user goes on using this Acrobat",
     "the Acrobat kept is the service's, not the user's"),
    ("link-04", "link", A + "PlugInLink.cpp",
     "if (link->reply_ == 0) {",
     "if (link->reply_ != 0) {",
     "the plug-in's end-of-connection reply inverted"),
    ("link-05", "link", A + "PlugInLink.cpp",
     "        retryAllowed_ = true;\n",
     "        retryAllowed_ = false;\n",
     "a failure on a reused connection is not retried"),
    ("link-06", "link", A + "PlugInLink.cpp",
     "    // Only a non-zero count is required: a short write is not detected.\n"
     "    if (error != 0 || bytes == 0) {",
     "    if (error != 0) {",
     "a zero-byte write counts as written"),
    ("link-07", "link", A + "PlugInLink.cpp",
     "MSG_ACROBAT_EXITED_WHILE_WAITING);",
     "MSG_WAIT_SINGLE_FAILED);",
     "Acrobat's exit reported with the wrong message"),
    ("link-08", "link", A + "PlugInLink.cpp",
     "if (!process_ || !asService_) {",
     "if (!process_) {",
     "a user's own Acrobat is terminated"),
    ("link-09", "link", A + "PipeNames.cpp",
     "    std::replace(user.begin(), user.end(), u'\\\\', u'_');\n",
     "",
     "the backslash of DOMAIN\\user stays in pipe names"),
    # job: the job message
    ("job-01", "job", A + "JobMessage.cpp",
     "{\"input\", \"script\", \"output_folder\"}",
     "{\"input\", \"output_folder\", \"script\"}",
     "the job's items in the wrong order"),
    ("job-02", "job", A + "JobMessage.cpp",
     "if (code < 0x80) {",
     "if (code <= 0x80) {",
     "U+0080 written as one byte"),
    ("job-03", "job", A + "JobMessage.cpp",
     "} else if (code < 0x800) {",
     "} else if (code <= 0x800) {",
     "U+0800 written as two bytes"),
    ("job-04", "job", A + "JobMessage.cpp",
     "return unit >= 0xDC00 && unit <= 0xDFFF;",
     "return unit >= 0xDC00 && unit < 0xDFFF;",
     "U+DFFF not taken as a low surrogate"),
    ("job-05", "job", A + "JobMessage.cpp",
     "for (int shift = 0; shift < 32; shift += 8) {",
     "for (int shift = 0; shift < 24; shift += 8) {",
     "lengths written in three bytes"),
    ("job-06", "job", A + "JobMessage.cpp",
     "AppendLength(message, payload.size());",
     "AppendLength(message, payload.size() + 4);",
     "the message length counts its own four bytes"),
    ("job-07", "job", A + "JobMessage.cpp",
     "if (slot == kKeys.size() || values[slot]) {",
     "if (slot == kKeys.size()) {",
     "the decoder takes a repeated key"),
    # queue: command queue and watcher links
    ("queue-01", "queue", S + "CommandQueue.cpp",
     "os::ReleaseSemaphore(semaphore_, 1, &previous);",
     "static_cast<void>(previous);",
     "a posted command does not wake the supervisor"),
    ("queue-02", "queue", S + "CommandQueue.cpp",
     "Command front = items_.front();\n    items_.pop_front();",
     "Command front = items_.back();\n    items_.pop_back();",
     "commands taken last first"),
    ("queue-03", "queue", S + "WatcherLinks.cpp",
     "{static_cast<BYTE>(code), static_cast<BYTE>(code >> 8),",
     "{static_cast<BYTE>(code >> 8), static_cast<BYTE>(code),",
     "the command word's bytes swapped"),
    ("queue-04", "queue", S + "WatcherLinks.cpp",
     "        os::CloseHandle(pipe);\n        links.erase(link);\n",
     "        os::CloseHandle(pipe);\n",
     "a watcher whose first write failed stays linked"),
    ("queue-05", "queue", S + "WatcherLinks.cpp",
     "link = links.erase(link);",
     "++link;",
     "a watcher that has exited stays linked"),
    ("queue-06", "queue", S + "WatcherLinks.cpp",
     "LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str()",
     "LOCALE_INVARIANT, 0, a.c_str()",
     "pipe names linked twice in other letter case"),
    ("queue-07", "queue", S + "WatcherLinks.cpp",
     "    events.Report(EVENTLOG_INFORMATION_TYPE, MSG_CONNECTED_TO_WATCHER_PIPE, {name});\n",
     "",
     "a connection to a watcher is not reported"),
    # store: installed users, binary value reader, password protection
    ("store-01", "store", S + "BinaryValueReader.cpp",
     "if (result != static_cast<LONG>(ERROR_INSUFFICIENT_BUFFER)) {",
     "if (result != static_cast<LONG>(ERROR_INSUFFICIENT_BUFFER) && "
     "result != static_cast<LONG>(ERROR_MORE_DATA)) {",
     "the reader's retry widened from 122 to 122 or 234"),
    ("store-02", "store", S + "BinaryValueReader.cpp",
     "status_ = type == REG_BINARY ? 0 :",
     "status_ = type != REG_NONE ? 0 :",
     "a value of any type is read as a sealed password"),
    ("store-03", "store", S + "UserStore.cpp",
     " || status == static_cast<LONG>(ERROR_PATH_NOT_FOUND)",
     "",
     "a missing path is an error, not 'not installed'"),
    ("store-04", "store", S + "UserStore.cpp",
     " || result == static_cast<LONG>(ERROR_MORE_DATA)",
     "",
     "a long user name ends the listing"),
    ("store-05", "store", S + "UserStore.cpp",
     "if (index == 0) {",
     "if (index <= 1) {",
     "one user reported as no users"),
    ("store-06", "store", S + "SecretText.cpp",
     "    WipeBytes(buffer_, capacity_ * sizeof(WCHAR));\n",
     "",
     "the password buffer is not wiped"),
    ("store-07", "store", S + "PasswordProtection.cpp",
     "        WipeBytes(opened_.get(), openedSize_);\n",
     "",
     "the opened blob is not wiped"),
    ("store-08", "store", S + "PasswordProtection.cpp",
     "in.cbData = static_cast<DWORD>(password.size() * sizeof(char16_t));",
     "in.cbData = static_cast<DWORD>(password.size());",
     "only half the password is sealed"),
    ("store-09", "store", S + "UserStore.cpp",
     "constexpr DWORD kFirstNameCapacity = 64;",
     "constexpr DWORD kFirstNameCapacity = 0;",
     "the listing starts with no room for a name"),
    # launch: watcher launch, logon process creator
    ("launch-01", "launch", S + "WatcherLaunch.cpp",
     "if (CountLinks(links, MakePipeName(kWatcherPipePrefix, user)) == 0) {",
     "if (CountLinks(links, MakePipeName(kWatcherPipePrefix, user)) <= 1) {",
     "a user whose watcher is linked is launched again"),
    ("launch-02", "launch", S + "WatcherLaunch.cpp",
     "if (value.status() != 0) {",
     "if (value.status() < 0) {",
     "a user whose value cannot be read is launched"),
    ("launch-03", "launch", S + "WatcherLaunch.cpp",
     "        unprotected->Wipe();\n",
     "",
     "the password is not wiped after the launch"),
    ("launch-04", "launch", S + "WatcherLaunch.cpp",
     "u\" -asservice\"",
     "u\" -currentuser\"",
     "the watcher started with the wrong switch"),
    ("launch-05", "launch", S + "WatcherLaunch.cpp",
     "WCHAR noDesktop[] = u\"\";",
     "WCHAR noDesktop[] = u\"WinSta0\\\\Default\";",
     "the watcher is put on the interactive desktop"),
    ("launch-06", "launch", S + "WatcherLaunch.cpp",
     "    os::CloseHandle(process.hProcess);\n",
     "",
     "the service keeps a handle on every watcher"),
    ("launch-07", "launch", S + "LogonProcessCreator.cpp",
     "    BOOL const loaded = os::LoadUserProfileW(token_, &profile);\n"
     "    DWORD const loadError = os::GetLastError();\n"
     "    // Only now: the profile path points into the record.\n"
     "    if (haveRecord) {\n"
     "        os::NetApiBufferFree(record);\n"
     "    }\n",
     "    if (haveRecord) {\n"
     "        os::NetApiBufferFree(record);\n"
     "    }\n"
     "    BOOL const loaded = os::LoadUserProfileW(token_, &profile);\n"
     "    DWORD const loadError = os::GetLastError();\n",
     "the user record freed before the profile is loaded from it"),
    ("launch-08", "launch", S + "LogonProcessCreator.cpp",
     "    profile_ = profile.hProfile;\n",
     "",
     "the loaded profile is never unloaded"),
    ("launch-09", "launch", S + "LogonProcessCreator.cpp",
     "std::size_t const slash = user.find(u'\\\\');",
     "std::size_t const slash = user.rfind(u'\\\\');",
     "the domain taken up to the last backslash"),
    # supervisor: the supervisor thread
    ("supervisor-01", "supervisor", S + "SupervisorThread.cpp",
     "kWatcherPipePrefix, kWatcherPipePrefixLength) == 0;",
     "kWatcherPipePrefix, kWatcherPipePrefixLength - 1) == 0;",
     "a pipe matching all but the prefix's last letter is a watcher's"),
    ("supervisor-02", "supervisor", S + "SupervisorThread.cpp",
     "links, events, CMD_RUN);",
     "links, events, CMD_PAUSE);",
     "reconnected watchers told to pause"),
    ("supervisor-03", "supervisor", S + "SupervisorThread.cpp",
     "                currentCommand = command.code;\n",
     "",
     "a watcher connecting after a pause is told to run"),
    ("supervisor-04", "supervisor", S + "SupervisorThread.cpp",
     "DWORD currentCommand = CMD_RUN;",
     "DWORD currentCommand = CMD_PAUSE;",
     "a newly connected watcher starts paused"),
    ("supervisor-05", "supervisor", S + "SupervisorThread.cpp",
     "                BroadcastCommand(CMD_STOP, links, events);\n",
     "",
     "the watchers are not told to stop"),
    ("supervisor-06", "supervisor", S + "SupervisorThread.cpp",
     "    ReconnectRunningWatchers(links, events);\n"
     "    std::vector<std::u16string> users;\n"
     "    EnumerateUsers(store.key(), events, users);\n"
     "    LaunchWatchers(users, store.key(), links, events);\n",
     "    std::vector<std::u16string> users;\n"
     "    EnumerateUsers(store.key(), events, users);\n"
     "    LaunchWatchers(users, store.key(), links, events);\n"
     "    ReconnectRunningWatchers(links, events);\n",
     "watchers launched before the running ones are found"),
    ("supervisor-07", "supervisor", S + "SupervisorThread.cpp",
     "MSG_WAIT_MULTIPLE_FAILED",
     "MSG_WAIT_SINGLE_FAILED",
     "a failed queue wait reported with the wrong message"),
    # service: service module, FolderService, one-shot switches
    ("service-01", "service", V + "HotFolderModule.cpp",
     "TheCommandQueue().Post(Command{CMD_PAUSE, {}});",
     "TheCommandQueue().Post(Command{CMD_RUN, {}});",
     "a pause request becomes run"),
    ("service-02", "service", V + "HotFolderModule.cpp",
     "            os::PostThreadMessageW(serviceThreadId_, WM_QUIT, 0, 0);\n",
     "",
     "a stop request does not end the message loop"),
    ("service-03", "service", V + "HotFolderModule.cpp",
     "    ReportState(SERVICE_STOPPED);\n",
     "",
     "the service never reports stopped"),
    ("service-04", "service", V + "HotFolderModule.cpp",
     "REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED",
     "REGCLS_MULTIPLEUSE",
     "the class object is live before the service runs"),
    ("service-05", "service", V + "HotFolderModule.cpp",
     "    if (left == 0) {\n        if (delayShutdown_) {",
     "    if (left <= 1) {\n        if (delayShutdown_) {",
     "a local server quits while a client remains"),
    ("service-06", "service", V + "OneShotSwitches.cpp",
     "return at == line.size() || line[at] == u' ' || line[at] == u'\\t';",
     "return at <= line.size();",
     "a switch matches the start of a longer word"),
    ("service-07", "service", V + "OneShotSwitches.cpp",
     "            if (result == S_OK) {\n                result = registration.RegisterServer();",
     "            {\n                result = registration.RegisterServer();",
     "the server registered after its AppID failed"),
    ("service-08", "service", V + "FolderService.cpp",
     "*isInstalled = installed ? VARIANT_TRUE : VARIANT_FALSE;",
     "*isInstalled = installed ? VARIANT_FALSE : VARIANT_TRUE;",
     "IsUserInstalled answers inverted"),
    ("service-09", "service", V + "FolderService.cpp",
     "std::u16string_view(password, os::SysStringLen(password))",
     "std::u16string_view(password)",
     "a password is sealed only up to its first null"),
    ("service-10", "service", V + "FolderService.cpp",
     "if (outer != nullptr && !os::SameGuid(iid, os::IID_IUnknown)) {",
     "if (outer != nullptr) {",
     "aggregation refused altogether"),
    # registration: registration, registry script, service installer
    ("registration-01", "registration", V + "Registration.cpp",
     "constexpr DWORD kEventTypesSupported = 7;",
     "constexpr DWORD kEventTypesSupported = 5;",
     "the event source claims no warnings"),
    ("registration-02", "registration", V + "Registration.cpp",
     "    os::RegDeleteValueW(appId.get(), kLocalService);  // a missing value is no error\n",
     "",
     "-RegServer after -Service keeps LocalService"),
    ("registration-03", "registration", V + "Registration.cpp",
     "    ConfigureServiceStart();\n",
     "",
     "the service stays on demand start"),
    ("registration-04", "registration", V + "Registration.cpp",
     "replacements[u\"MODULE\"] = u\"\\\"\" + ExecutablePath() + u\"\\\"\";",
     "replacements[u\"MODULE\"] = ExecutablePath();",
     "the server path registered without quotes"),
    ("registration-05", "registration", V + "RegistryScript.cpp",
     "if (removed != 0 && removed != static_cast<LONG>(ERROR_FILE_NOT_FOUND)) {",
     "if (removed != 0) {",
     "ForceRemove of a missing key fails the registration"),
    ("registration-06", "registration", V + "RegistryScript.cpp",
     "if (key.mark == Mark::NoRemove) {",
     "if (key.mark == Mark::None) {",
     "NoRemove keys deleted and plain keys kept"),
    ("registration-07", "registration", V + "ServiceInstaller.cpp",
     "    if (!IsServiceInstalled(serviceName)) {\n        return true;\n    }\n",
     "",
     "removing a service that is not there fails with a message box"),
    ("registration-08", "registration", V + "ServiceInstaller.cpp",
     "status.dwCurrentState == SERVICE_STOP_PENDING;",
     "status.dwCurrentState == SERVICE_STOPPED;",
     "a service already stopping gets a message box"),
    ("registration-09", "registration", V + "ServiceInstaller.cpp",
     "if (length == 0 || length >= kMaxPath) {",
     "if (length == 0 || length > kMaxPath) {",
     "a truncated 260-character module path is used"),
]


def read(path):
    with open(path, encoding="utf-8", newline="") as f:
        return f.read()


def write(path, text):
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text)


def stale_reason(mutant, root=ROOT):
    """None when the mutant's snippet occurs exactly once, else why not."""
    _, _, path, original, _, _ = mutant
    full = os.path.join(root, path)
    if not os.path.exists(full):
        return "file missing"
    count = read(full).count(original)
    return None if count == 1 else "snippet found %d times" % count


def tree_files(root):
    """The tree's files relative to root, without .git and build."""
    found = set()
    for folder, dirs, files in os.walk(root):
        if folder == root:
            dirs[:] = [d for d in dirs if d not in (".git", "build")]
        found.update(os.path.relpath(os.path.join(folder, name), root) for name in files)
    return found


def sync_tree():
    """Makes SOURCE a copy of the working tree, writing only changed files.

    A written file gets the time of writing, not the original's, so the build
    never takes it for older than its object; a file gone from the tree goes
    from the copy too, or a deleted test would still be built."""
    wanted = tree_files(ROOT)
    for relative in tree_files(SOURCE) - wanted if os.path.isdir(SOURCE) else ():
        os.remove(os.path.join(SOURCE, relative))
    for relative in wanted:
        source = os.path.join(ROOT, relative)
        target = os.path.join(SOURCE, relative)
        if os.path.exists(target) and filecmp.cmp(source, target, shallow=False):
            continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(source, target)


def build_env():
    """ccache, where installed, lets the scratch copy share objects with the
    project's own builds; without it each mutant still rebuilds incrementally."""
    env = dict(os.environ)
    if shutil.which("ccache"):
        env.update(CMAKE_CXX_COMPILER_LAUNCHER="ccache", CMAKE_C_COMPILER_LAUNCHER="ccache",
                   CCACHE_BASEDIR=os.path.dirname(ROOT))
    return env


def build(targets):
    """True when the targets build; the output is kept only on failure."""
    command = ["cmake", "--build", BUILD, "-j2", "--target"] + targets
    done = subprocess.run(command, env=build_env(), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        sys.stderr.write(done.stdout[-4000:])
    return done.returncode == 0


def suites():
    return sorted(set(HOME_SUITE.values()))


def suite_binary(suite):
    return os.path.join(BUILD, "tests", "native_%s_tests" % suite)


def first_failure(suite):
    """The first failing test of a suite, or None when it passes."""
    env = dict(os.environ, HF_SOURCE_DIR=SOURCE)
    try:
        done = subprocess.run([suite_binary(suite), "--gtest_fail_fast"], env=env,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                              timeout=TEST_TIME_LIMIT, cwd=os.path.join(BUILD, "tests"))
    except subprocess.TimeoutExpired:
        return "%s (timeout after %d s)" % (suite, TEST_TIME_LIMIT)
    if done.returncode == 0:
        return None
    running = None
    for line in done.stdout.splitlines():
        if line.startswith("[  FAILED  ] "):
            return line[len("[  FAILED  ] "):].split(" ")[0].rstrip(",")
        if line.startswith("[ RUN      ] "):
            running = line[len("[ RUN      ] "):].strip()
        elif line.startswith("[       OK ] "):
            running = None
    # No test failed: one ended the process (a sanitizer report, a crash).
    return "%s (crashed, exit status %d)" % (running or suite, done.returncode)


def run_mutant(mutant):
    """'KILLED by <test>', 'SURVIVED', 'STALE (...)' or 'DID NOT BUILD'."""
    mutant_id, subsystem, path, original, replacement, _ = mutant
    reason = stale_reason(mutant, SOURCE)
    if reason:
        return "STALE (%s)" % reason
    full = os.path.join(SOURCE, path)
    text = read(full)
    write(full, text.replace(original, replacement))
    try:
        home = HOME_SUITE[subsystem]
        order = [home] + [s for s in suites() if s != home]
        for suite in order:
            if not build(["native_%s_tests" % suite]):
                return "DID NOT BUILD"
            failed = first_failure(suite)
            if failed:
                return "KILLED by " + failed
        return "SURVIVED"
    finally:
        write(full, text)


def count_lines(folder, skip=None):
    total = 0
    for current, dirs, files in os.walk(os.path.join(ROOT, folder)):
        if skip and os.path.abspath(current).startswith(os.path.join(ROOT, skip)):
            continue
        for name in files:
            if name.endswith((".cpp", ".h", ".py", ".sh")):
                with open(os.path.join(current, name), "rb") as f:
                    total += f.read().count(b"\n")
    return total


def print_sizes():
    product = count_lines("HotFolder", skip="HotFolder/platform/sim") + count_lines("tools/ControlTool")
    tests = count_lines("tests")
    sim = count_lines("HotFolder/platform/sim")
    print("product (HotFolder/ without platform/sim/, tools/ControlTool): %d lines" % product)
    print("tests/: %d lines" % tests)
    print("sim (HotFolder/platform/sim/): %d lines" % sim)
    for name, lines, limit in (("tests/product", tests, 0.4), ("(tests+sim)/product", tests + sim, 1.0)):
        over = lines - int(limit * product)
        print("%s: %.3f (target at most %.2f: %s)" % (name, lines / product, limit,
                                                       "NOT met, %d lines over" % over if over > 0 else "met"))


def report_header():
    commit = subprocess.run(["git", "-C", ROOT, "describe", "--always", "--dirty"], stdout=subprocess.PIPE,
                            text=True).stdout.strip()
    return ("Mutation check, %s\ncommit: %s\ncommand: python3 scripts/mutants.py %s\n\n"
            % (time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()), commit, " ".join(sys.argv[1:])))


def selected(args):
    chosen = MUTANTS
    if args.only:
        wanted = args.only.split(",")
        unknown = [s for s in wanted if s not in SUBSYSTEMS]
        if unknown:
            sys.exit("unknown subsystem: %s (known: %s)" % (", ".join(unknown), ", ".join(SUBSYSTEMS)))
        chosen = [m for m in chosen if m[1] in wanted]
    if args.mutant:
        chosen = [m for m in chosen if m[0] == args.mutant]
        if not chosen:
            sys.exit("unknown mutant: " + args.mutant)
    return chosen


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="subsystems: " + ", ".join(SUBSYSTEMS))
    parser.add_argument("--only", metavar="SUBSYSTEM[,SUBSYSTEM]", help="only these subsystems' mutants")
    parser.add_argument("--mutant", metavar="ID", help="only this mutant")
    parser.add_argument("--list", action="store_true", help="list the mutants (and stale ones) and exit")
    parser.add_argument("--report", metavar="FILE", help="also write the result lines to FILE")
    parser.add_argument("--sizes", action="store_true", help="print line counts and ratios, without building")
    args = parser.parse_args()

    if args.sizes:
        print_sizes()
        return 0
    chosen = selected(args)
    if args.list:
        stale = 0
        for mutant in chosen:
            reason = stale_reason(mutant)
            stale += reason is not None
            print("%-16s %-13s %-40s %s%s" % (mutant[0], mutant[1], mutant[2], mutant[5],
                                             "  STALE (%s)" % reason if reason else ""))
        print("%d mutants%s" % (len(chosen), ", %d STALE" % stale if stale else ""))
        return 1 if stale else 0

    report = open(args.report, "w", encoding="utf-8") if args.report else None
    if report:
        report.write(report_header())

    def say(line):
        print(line, flush=True)
        if report:
            report.write(line + "\n")
            report.flush()

    sync_tree()
    if not os.path.exists(os.path.join(BUILD, "build.ninja")):
        subprocess.run(["cmake", "--preset", "native", "-B", BUILD], cwd=SOURCE, env=build_env(), check=True,
                       stdout=subprocess.DEVNULL)
    targets = ["native_%s_tests" % s for s in suites()]
    if not build(targets):
        sys.exit("the unmutated tree does not build")
    for suite in suites():
        failed = first_failure(suite)
        if failed:
            sys.exit("the unmutated suite fails (%s): fix that first" % failed)

    counts = {"killed": 0, "survived": 0, "stale": 0, "unbuilt": 0}
    started = time.time()
    for mutant in chosen:
        outcome = run_mutant(mutant)
        key = ("killed" if outcome.startswith("KILLED") else "survived" if outcome == "SURVIVED"
               else "stale" if outcome.startswith("STALE") else "unbuilt")
        counts[key] += 1
        say("%-16s %-13s %s" % (mutant[0], mutant[1], outcome))
    total = "%d killed, %d survived" % (counts["killed"], counts["survived"])
    if counts["stale"]:
        total += ", %d STALE (fix their snippets)" % counts["stale"]
    if counts["unbuilt"]:
        total += ", %d did not build" % counts["unbuilt"]
    say(total + " (%.0f s)" % (time.time() - started))
    build(targets)  # leave the scratch build matching the unmutated tree
    if report:
        report.close()
    return 1 if counts["survived"] or counts["stale"] else 0


if __name__ == "__main__":
    sys.exit(main())
