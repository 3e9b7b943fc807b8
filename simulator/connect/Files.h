// The files that the simulator reads and writes.
#pragma once

#include <string>
#include <utility>

namespace sim {

// Opens /dev/null for each standard descriptor that is closed. Otherwise the next file to be opened would get its
// number and receive its output. Must be called before anything else is opened.
void OpenStandardDescriptors();

// Returns the content. Throws Error.
std::string ReadFile(const std::string& path);

// Returns the file of a scenario: the name itself, or, if there is no such file and the name has no slash, that of an
// installed scenario, with or without its ending. Throws Error if there is none.
std::string ScenarioFile(const std::string& name);

// The files that a run writes are opened in two steps, so that everything is open before anything is overwritten.
// The constructors change nothing, but may wait for the reader of a FIFO.

// The file of --capture.
class CaptureFile {
 public:
  // `force`: an existing file may be overwritten. Throws Error, for example if it is false and a regular file exists.
  CaptureFile(std::string path, bool force);
  // Removes the file if it is new and Keep has not been called.
  ~CaptureFile();
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;

  // Creates or empties the file and writes its first line. Returns false if a stop signal, which must be blocked, comes
  // while a FIFO has no room for the line. Throws Error.
  bool Begin(const std::string& header);
  // Keeps the file, because the start has succeeded.
  void Keep() { created_ = false; }
  const std::string& path() const { return path_; }
  int descriptor() const { return descriptor_; }

 private:
  const std::string path_;
  int descriptor_ = -1;
  bool created_ = false;
};

// Holds the process id while the simulator accepts requests. A regular file exists only during that time and is never
// incomplete; anything else, such as a FIFO, gets the process id and remains.
class ReadyFile {
 public:
  // An empty path means no file. Throws Error.
  explicit ReadyFile(std::string path);
  ~ReadyFile();
  ReadyFile(const ReadyFile&) = delete;
  ReadyFile& operator=(const ReadyFile&) = delete;

  // Makes sure that the file can be written, and removes the file of an earlier run. Throws Error.
  void Prepare();
  // Announces that the simulator is ready: creates the file, or writes the process id to a FIFO or device. Throws
  // Error.
  void Announce();
  void Remove();

 private:
  const std::string path_;
  std::string draft_;    // the file that Announce renames to the ready file
  int descriptor_ = -1;  // of the draft, or of something that is not a regular file
  bool announced_ = false;
};

}  // namespace sim
