// Progress reports of a conversion, reaching Python with the GIL taken back.
#pragma once

#include <cstdint>
#include <string>

#include <pybind11/pybind11.h>

#include "Numpy.hpp"
#include "ravelin/LoaderProgress.hpp"

namespace Pallion::Python {

// Calls the user's callable, if any, at the library's report intervals and
// looks for a pending signal there.  A Python exception (KeyboardInterrupt
// from Ctrl-C among them) stops the conversion; it is kept for the caller.
// Without a callable a report takes the GIL only to look for a signal, which
// Python hands to its main thread alone: on any other thread (a Dask
// worker's, say) there is nothing to do.  On the main thread, the reports that
// come while numpy is being loaded are let pass (the GIL is the loader's),
// and a signal waits for the next report.
class PythonProgress : public Ravelin::LoaderProgress {
public:
    // Made with the GIL held, on the thread that converts.
    PythonProgress(pybind11::object callable, const NumpyLoader& numpy);

    bool report(const std::string& message, std::uint32_t value, std::uint32_t total) override;

    // The exception that stopped the conversion, or None; read with the GIL held.
    pybind11::object raised = pybind11::none();

private:
    pybind11::object callable_;
    const NumpyLoader& numpy_;
    bool onMainThread_;
};

// `progress` as given: None or a callable, else a TypeError.
void checkCallable(const pybind11::handle& progress);

}  // namespace Pallion::Python
