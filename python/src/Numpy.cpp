#include "Numpy.hpp"

#include <mutex>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace Pallion::Python {

NumpyLoader::NumpyLoader() {
    if (PyDict_GetItemString(PyImport_GetModuleDict(), "numpy") != nullptr) return;
    loading_ = true;
    thread_ = std::thread([this] {
        {
            const py::gil_scoped_acquire gil;
            try {
                py::module_::import("numpy");
            } catch (py::error_already_set&) {}
        }
        loading_ = false;
    });
}

NumpyLoader::~NumpyLoader() {
    if (!thread_.joinable()) return;
    // Joined without the GIL: the thread may still be waiting for it.
    PyThreadState* const state = PyEval_SaveThread();
    try {
        thread_.join();
    } catch (...) {  // a joinable thread other than this one: join does not fail
    }
    PyEval_RestoreThread(state);
}

void readyNumpy() {
    static std::atomic<bool> ready{false};
    if (ready.load(std::memory_order_acquire)) return;
    // Returns once numpy is whole: a half-imported numpy in sys.modules (another
    // thread's import) is waited for on its module lock, with the GIL released.
    py::module_::import("numpy");
    // pybind11 keeps the C API table in a function-local static, whose guard
    // blocks a second thread while the first imports numpy's core, and that
    // import may let the GIL go.  A thread blocked on the guard with the GIL
    // held would stop the first for good; here the first lookup happens under
    // a mutex that is only ever waited for without the GIL.
    static std::mutex first;
    const py::gil_scoped_release released;
    const std::lock_guard<std::mutex> lock(first);
    const py::gil_scoped_acquire gil;
    if (ready.load(std::memory_order_relaxed)) return;
    py::detail::npy_api::get();
    ready.store(true, std::memory_order_release);
}

}  // namespace Pallion::Python
