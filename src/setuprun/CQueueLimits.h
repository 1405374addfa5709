// The limits for running jobs that a setup hands to the programs and to the next setup.
#pragma once

#include <string>

#include "support/hx_export.h"

// The file QueueLimits of one directory. It is read once, by the constructor, in either of its two
// forms: lines of "Key: value", or a first line that begins with a number of 1 or more, which is
// MaxThreads alone. Setters change the object; writeQueueLimits, or the destructor of a changed
// object, writes the file in its key form, in place, keeping its mode and owner.
//
// An object whose file could not be opened holds the defaults, has an empty path and never writes.
// No lock is taken: a reader may see a file that is half written.
//
// The order of the fields is the library's binary interface.
class HX_EXPORT CQueueLimits {
public:
    // Reads `directory`/QueueLimits. Only a null `directory` is replaced, by the environment's
    // CORV_CORVANERC or, without that, by the root directory. A file that cannot be opened is no
    // error.
    explicit CQueueLimits(const char* directory);

    // Writes the file if a setter changed something; a failure goes unnoticed.
    virtual ~CQueueLimits();

    CQueueLimits(const CQueueLimits&) = delete;
    CQueueLimits& operator=(const CQueueLimits&) = delete;

    // The setters change a field, and mark the object as changed if the value is another one. No
    // value is refused.

    // Changes MaxThreads.
    void SetMaxThreads(int threads);

    // Changes MemoryPerThreadMB.
    void SetMemoryPerThread(int megabytes);

    // Changes DiskPerThreadGB.
    void SetDiskPerThread(int gigabytes);

    // Changes ThreadsPerMolecule.
    void SetThreadsPerMolecule(int threads);

    // Changes Scratch. A line break in the name would break the file.
    void SetScratchPath(std::string directory);

    // True when there is a file and the user may write to it.
    bool accessQueueLimits();

    // Writes the file, changed or not, and returns 0; -1 when there is no file, or the error number
    // when it cannot be opened. Errors after that are not noticed.
    int writeQueueLimits();

    // The number of a line that begins with `key`, compared without regard to case, and a colon
    // directly behind it. 0 for any other line and for a value that is no number or below 1.
    int ParseIntForKey(const char* key, char* line);

    // The text of such a line, without the blanks around it; empty for any other line. Cuts the
    // blanks and the newline off in `line` itself; a carriage return stays.
    std::string ParseStringForKey(const char* key, char* line);

    // A key that is there with a value which is no number of 1 or more gives 0, not the default.
    bool m_dirty = false;          // changed since the last write
    std::string m_path;            // full path of the file; empty: there is no file
    int MaxThreads = 0;            // threads that may run at once; 0: not given
    int MemoryPerThreadMB = 1024;  // memory per thread, in MB of 2^20 bytes
    int DiskPerThreadGB = 1;       // scratch space per thread, in GB of 2^30 bytes
    std::string Scratch = "/tmp";  // scratch directory; may be empty
    int ThreadsPerMolecule = 0;    // threads that work on one molecule; 0: not given
};
