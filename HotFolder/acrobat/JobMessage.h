// The job message: what the watcher writes to the Acrobat plug-in's pipe for
// one file and one hot folder.
//
// A message is a 4-byte little-endian length N followed by N bytes of payload,
// the marshal form (as the plug-in's Python reads it) of a dictionary of three
// texts, in this order:
//
//   '{'
//   's' <len:4 LE> "input"          'u' <len:4 LE> <input path, UTF-8>
//   's' <len:4 LE> "script"         'u' <len:4 LE> <script path, UTF-8>
//   's' <len:4 LE> "output_folder"  'u' <len:4 LE> <output folder, UTF-8>
//   '0'
//
// The plug-in finds the items by key. It answers every message with one byte:
// 0 asks the watcher to end the connection, anything else keeps it open.
#pragma once

#include "platform/Types.h"

#include <optional>
#include <string>
#include <vector>

namespace hf {

// The framed message for one job: the input file, the hot folder's script and
// its output folder.
std::vector<BYTE> EncodeJobMessage(std::u16string const& input, std::u16string const& script,
                                   std::u16string const& outputFolder);

// A UTF-16 text as the payload's values carry it: UTF-8, a surrogate pair as
// one 4-byte sequence. A surrogate without its partner (Windows file names may
// hold one) is written as its own 3-byte sequence, the way the plug-in's
// Python reads and writes such names ("surrogatepass"), so the name survives
// the trip unchanged instead of being replaced.
std::string EncodeWideText(std::u16string const& text);

// The reverse of EncodeWideText; nothing when the bytes are not such a text.
std::optional<std::u16string> DecodeWideText(std::string const& bytes);

// One job as the plug-in side reads it back.
struct Job {
    std::u16string input;
    std::u16string script;
    std::u16string outputFolder;
};

// Reads a payload (the bytes after the length), whatever the order of its
// items; nothing when it is not a dictionary of exactly the three texts. For
// the plug-in's side of the pipe; the watcher only writes.
std::optional<Job> DecodeJobPayload(BYTE const* payload, std::size_t size);

// The watcher loop's hooks for a job encoder that needs a runtime: it starts
// the encoder before the first job and stops it at teardown. This encoder
// writes the bytes itself and has nothing to start or stop.
void StartJobEncoder();
void StopJobEncoder();

}  // namespace hf
