// The limits for jobs, which a setup passes to the programs and to the next setup.
#pragma once

#include <string>

#include "support/hx_export.h"

// The QueueLimits file of one directory. The constructor reads it in either form: lines of
// "Key: value", or a first line that begins with a number of 1 or more, which is MaxThreads alone.
// writeQueueLimits, or the destructor after a change by a setter, writes the file in its key form,
// in place, and keeps its mode and owner.
//
// If the file cannot be opened, the object has the default values and an empty path, and never
// writes. Takes no lock: a reader can see a partly written file.
//
// Follows links, waits for a FIFO, and has no limit for the file's size. A caller that runs as root
// must not read or write the file in a directory that other users can write to.
//
// The order of the fields is part of the binary interface.
class HX_EXPORT CQueueLimits {
public:
    // Reads `directory`/QueueLimits. If `directory` is null, uses the environment variable
    // CORV_CORVANERC or, if that is unset, the root directory. A missing or unreadable file is not
    // an error.
    explicit CQueueLimits(const char* directory);

    // Writes the file if a setter changed a value. Ignores a failure.
    virtual ~CQueueLimits();

    CQueueLimits(const CQueueLimits&) = delete;
    CQueueLimits& operator=(const CQueueLimits&) = delete;

    // The setters accept any value, and mark the object as changed if the value differs.

    // Sets MaxThreads.
    void SetMaxThreads(int threads);

    // Sets MemoryPerThreadMB.
    void SetMemoryPerThread(int megabytes);

    // Sets DiskPerThreadGB.
    void SetDiskPerThread(int gigabytes);

    // Sets ThreadsPerMolecule.
    void SetThreadsPerMolecule(int threads);

    // Sets Scratch. The directory must not contain a newline.
    void SetScratchPath(std::string directory);

    // Returns true if the file was read and the user can write to it.
    bool accessQueueLimits();

    // Writes the file, even if unchanged. Returns 0, -1 if the path is empty, or the error number
    // if the file cannot be opened. Does not detect write errors.
    int writeQueueLimits();

    // Returns the number after `key`, compared without regard to case, and a colon at the start of
    // `line`. Returns 0 for any other line, and if the value is not a number or is below 1.
    int ParseIntForKey(const char* key, char* line);

    // Returns the text after `key` and a colon, without spaces and tabs at either end; empty for
    // any other line. Truncates `line` itself at the end of the text. Keeps a carriage return.
    std::string ParseStringForKey(const char* key, char* line);

    bool m_dirty = false;  // changed since the last write
    std::string m_path;    // full path of the file; empty: the file could not be opened

    // A line whose value is not a number of 1 or more sets its field to 0, not to the default.
    int MaxThreads = 0;            // threads that run at once; 0: not given
    int MemoryPerThreadMB = 1024;  // memory per thread, in MB of 2^20 bytes
    int DiskPerThreadGB = 1;       // scratch space per thread, in GB of 2^30 bytes
    std::string Scratch = "/tmp";  // scratch directory; may be empty
    int ThreadsPerMolecule = 0;    // threads that work on one molecule; 0: not given
};
