#include "Progress.hpp"

#include <utility>

#include "ModuleMessages.hpp"
#include "pallion/tools/Messages.hpp"

namespace py = pybind11;

namespace Pallion::Python {

namespace {

bool isMainThread() {
    const py::module_ threading = py::module_::import("threading");
    return threading.attr("get_ident")().equal(threading.attr("main_thread")().attr("ident"));
}

}  // namespace

PythonProgress::PythonProgress(py::object callable, const NumpyLoader& numpy)
    : callable_(std::move(callable)), numpy_(numpy), onMainThread_(isMainThread()) {}

bool PythonProgress::report(const std::string& /*message*/, std::uint32_t value, std::uint32_t total) {
    if (callable_.is_none() && (!onMainThread_ || numpy_.loading())) return true;
    const py::gil_scoped_acquire gil;
    if (!raised.is_none()) return false;  // asked to stop already
    try {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (!callable_.is_none()) callable_(value, total);
        return true;
    } catch (py::error_already_set& e) {
        raised = e.value();
        return false;
    }
}

void checkCallable(const py::handle& progress) {
    if (!progress.is_none() && PyCallable_Check(progress.ptr()) == 0)
        throw py::type_error(Pallion::Tools::messages::fill(
            messages::NotCallable, py::str(py::type::of(progress).attr("__name__")).cast<std::string>().c_str()));
}

}  // namespace Pallion::Python
