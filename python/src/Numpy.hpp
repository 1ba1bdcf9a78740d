// numpy for the module: loaded beside the first conversion, and its C API
// looked up once, safely from any number of threads.
#pragma once

#include <atomic>
#include <thread>

namespace Pallion::Python {

// Importing numpy takes much of what a short script spends outside the
// conversion, and the conversion needs no Python.  Where numpy is not in
// sys.modules yet, a thread of its own imports it while the calling thread
// converts with the GIL released.  A failed import is left for the first
// array to raise again.  Made and destroyed with the GIL held.
class NumpyLoader {
public:
    NumpyLoader();
    NumpyLoader(const NumpyLoader&) = delete;
    NumpyLoader& operator=(const NumpyLoader&) = delete;
    ~NumpyLoader();

    bool loading() const { return loading_; }

private:
    std::atomic<bool> loading_{false};
    std::thread thread_;
};

// Makes numpy's C API ready for arrays; called with the GIL held before any
// array is made.  numpy is imported (an import under way on another thread
// is waited for, as Python's import lock does), and the C API table is then
// looked up once under a lock taken without the GIL, so that no thread ever
// holds the GIL while it waits for another thread's first lookup.
void readyNumpy();

}  // namespace Pallion::Python
