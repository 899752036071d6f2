// tavo_hdr._native: the C++ half of the Python module. It calls the shared
// library's capture and compiles in the tool's own raw-file, dump-name, output
// and colour code, so that every byte it reads, writes or converts is the
// tool's. Argument checks with friendly messages live in tavo_hdr/__init__.py;
// the checks here only keep a wrong call from reaching memory it does not own.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tavo_lumo_hdr.h"
#include "tools/core_plan.h"
#include "tools/dump_names.h"
#include "tools/output_file.h"
#include "tools/raw_io.h"
#include "tools/replay_json.h"
#include "tools/yuv_convert.h"

namespace py = pybind11;
using tavo::ChromaLayout;

namespace {

// C-contiguous uint8 arrays only: noconvert() in the bindings turns anything
// else into a TypeError instead of a silent copy.
using Bytes = py::array_t<uint8_t, py::array::c_style>;

// A path or a message as Python shows it: decoded as os.fsdecode does, so
// that a name that is not UTF-8 comes out whole.
py::object decoded(const std::string& text) {
  return py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<py::ssize_t>(text.size())));
}

[[noreturn]] void raise(PyObject* type, const std::string& message) {
  PyErr_SetObject(type, decoded(message).ptr());
  throw py::error_already_set();
}

// OSError for a file: with the system's error number, the subclass Python
// gives it (FileNotFoundError, PermissionError, IsADirectoryError, ...), its
// text and the path; a refusal that is not the system's carries the tool's
// one-line reason and the path.
[[noreturn]] void raise_file_error(int number, const std::string& message, const std::string& path) {
  const py::object os_error = py::reinterpret_borrow<py::object>(PyExc_OSError);
  py::object error = number != 0 ? os_error(number, strerror(number), decoded(path)) : os_error(decoded(message));
  if (number == 0) error.attr("filename") = decoded(path);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
  throw py::error_already_set();
}

void expect_bytes(const py::array& a, size_t n, const char* what) {
  if (static_cast<size_t>(a.nbytes()) != n) {
    raise(PyExc_ValueError, std::string(what) + " holds " + std::to_string(a.nbytes()) + " bytes, not " +
                                std::to_string(n));
  }
}

ChromaLayout layout_of(const std::string& name) {
  const ChromaLayout layout = tavo::parse_layout(name.c_str());
  if (layout == ChromaLayout::kOther) {
    raise(PyExc_ValueError, "unknown layout " + name + " (YUV420_PLANAR or YVU420_SEMIPLANAR)");
  }
  return layout;
}

// A numpy array that takes over `bytes` without copying them.
Bytes adopt(std::vector<uint8_t>&& bytes, std::vector<py::ssize_t> shape) {
  auto* owned = new std::vector<uint8_t>(std::move(bytes));
  py::capsule base(owned, [](void* p) { delete static_cast<std::vector<uint8_t>*>(p); });
  return Bytes(std::move(shape), owned->data(), base);
}

py::ssize_t frame_rows(int32_t height) { return static_cast<py::ssize_t>(height) * 3 / 2; }

int32_t hdr_function(const Bytes& dark, const Bytes& normal, const Bytes& bright, Bytes out,
                     int32_t width, int32_t height, const std::string& layout) {
  if (width < TAVO_HDR_MIN_WIDTH || height < TAVO_HDR_MIN_HEIGHT) raise(PyExc_ValueError, "frame too small");
  const size_t n = tavo::tool::raw_frame_bytes(width, height);
  expect_bytes(dark, n, "the dark frame");
  expect_bytes(normal, n, "the normal frame");
  expect_bytes(bright, n, "the bright frame");
  expect_bytes(out, n, "the output");
  uint8_t* dst = out.mutable_data();  // raises when the array is read-only
  py::gil_scoped_release unlocked;
  return HDR_Function(dark.data(), normal.data(), bright.data(), dst, height, width, layout.c_str());
}

Bytes read_raw(const std::string& path, int32_t width, int32_t height) {
  std::vector<uint8_t> bytes;
  std::string error;
  int number = 0;
  if (!tavo::tool::read_raw_frame(path, width, height, &bytes, &error, &number)) {
    raise_file_error(number, error, path);
  }
  return adopt(std::move(bytes), {frame_rows(height), width});
}

void write_raw(const std::string& path, const Bytes& array) {
  std::string error;
  int number = 0;
  if (!tavo::tool::write_output(path, array.data(), static_cast<size_t>(array.nbytes()), {}, &error, &number)) {
    raise_file_error(number, error, path);
  }
}

// Paths and names come in as the bytes the system takes (the package turns
// str and PathLike into them) and go back as bytes, which the package decodes
// as os.fsdecode does: a name that is not UTF-8 survives the round trip.

// (width, height, layout, size as written) of a capture's base name, None
// when it is not one.
std::optional<std::tuple<int32_t, int32_t, py::bytes, py::bytes>> parse_dump_name(const std::string& base) {
  tavo::tool::DumpName name;
  if (!tavo::tool::parse_dump_name(base, &name)) return std::nullopt;
  return std::make_tuple(name.width, name.height, py::bytes(name.layout), py::bytes(name.size));
}

// The captures one replay argument names (a directory, or a capture's
// prefix); a name that is not a capture's is a ValueError, a path that cannot
// be read an OSError.
std::vector<tavo::tool::Capture> captures_of(const std::string& arg) {
  std::vector<tavo::tool::Capture> captures;
  std::string error;
  int number = 0;
  switch (tavo::tool::collect_captures({arg}, &captures, &error, &number)) {
    case tavo::tool::Collected::kCollected: return captures;
    case tavo::tool::Collected::kNotACaptureName: raise(PyExc_ValueError, error);
    default: raise_file_error(number, error, arg);
  }
}

// (prefix, width, height, layout, size as written) of the captures `arg`
// names, as replay takes them.
std::vector<std::tuple<py::bytes, int32_t, int32_t, py::bytes, py::bytes>> collect_captures(const std::string& arg) {
  std::vector<std::tuple<py::bytes, int32_t, int32_t, py::bytes, py::bytes>> out;
  for (const auto& c : captures_of(arg)) {
    out.emplace_back(py::bytes(c.prefix), c.name.width, c.name.height, py::bytes(c.name.layout),
                     py::bytes(c.name.size));
  }
  return out;
}

std::optional<py::bytes> dumped_output(const std::string& prefix) {
  const std::vector<tavo::tool::Capture> captures = captures_of(prefix);
  if (captures.size() != 1) raise(PyExc_ValueError, prefix + " is not one capture");
  std::string path = tavo::tool::find_dumped_output(captures[0]);
  if (path.empty()) return std::nullopt;
  return py::bytes(path);
}

Bytes yuv_to_rgb(const Bytes& frame, int32_t width, int32_t height, const std::string& layout) {
  const ChromaLayout chroma = layout_of(layout);
  expect_bytes(frame, tavo::tool::raw_frame_bytes(width, height), "the frame");
  Bytes rgb({static_cast<py::ssize_t>(height), static_cast<py::ssize_t>(width), py::ssize_t{3}});
  uint8_t* dst = rgb.mutable_data();
  py::gil_scoped_release unlocked;
  tavo::tool::yuv420_to_rgb(frame.data(), width, height, chroma, dst);
  return rgb;
}

Bytes rgb_to_yuv(const Bytes& rgb, int32_t width, int32_t height, const std::string& layout) {
  const ChromaLayout chroma = layout_of(layout);
  expect_bytes(rgb, static_cast<size_t>(width) * static_cast<size_t>(height) * 3, "the image");
  Bytes yuv({frame_rows(height), static_cast<py::ssize_t>(width)});
  uint8_t* dst = yuv.mutable_data();
  py::gil_scoped_release unlocked;
  tavo::tool::rgb_to_yuv420(rgb.data(), width, height, chroma, dst);
  return yuv;
}

// A record or figures of the replay code as Python objects; text decoded as
// os.fsdecode does, so that names come back byte for byte.
py::object to_python(const tavo::tool::Json& j) {
  switch (j.type()) {
    case tavo::tool::Json::value_t::null: return py::none();
    case tavo::tool::Json::value_t::boolean: return py::bool_(j.get<bool>());
    case tavo::tool::Json::value_t::number_integer: return py::int_(j.get<int64_t>());
    case tavo::tool::Json::value_t::number_unsigned: return py::int_(j.get<uint64_t>());
    case tavo::tool::Json::value_t::number_float: return py::float_(j.get<double>());
    case tavo::tool::Json::value_t::string: return decoded(j.get_ref<const std::string&>());
    case tavo::tool::Json::value_t::array: {
      py::list list;
      for (const auto& item : j) list.append(to_python(item));
      return list;
    }
    default: {
      py::dict dict;
      for (const auto& [key, value] : j.items()) dict[decoded(key)] = to_python(value);
      return dict;
    }
  }
}

// A read-only numpy view of bytes that outlive it.
py::array view_of(const std::vector<uint8_t>& bytes) {
  py::array view(py::dtype::of<uint8_t>(), {static_cast<py::ssize_t>(bytes.size())}, {py::ssize_t{1}}, bytes.data(),
                 py::capsule(bytes.data(), [](void*) {}));
  py::detail::array_proxy(view.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
  return view;
}

// tavo-hdr replay's replay of one capture, fused by `fuse_into(dark, normal,
// bright, out, width, height, layout) -> (result, ms, log)`: the package's
// capture, with its pool, lock and Ctrl-C. The GIL is free while files are
// read, written and compared. Returns the report record.
py::object replay(const std::string& prefix, const std::optional<std::string>& out_dir, const py::function& fuse_into) {
  const std::vector<tavo::tool::Capture> captures = captures_of(prefix);
  if (captures.size() != 1) raise(PyExc_ValueError, prefix + " is not one capture");
  std::string error;
  if (out_dir && !tavo::tool::prepare_directory(*out_dir, "output directory", &error)) {
    raise_file_error(0, error, *out_dir);
  }
  std::vector<tavo::tool::FileId> inputs;
  const auto jobs = tavo::tool::plan_replay(captures, out_dir.value_or(""), &inputs);
  std::optional<py::error_already_set> raised;  // by fuse_into, raised again once the GIL is back
  const auto capture = [&](const tavo::tool::Frames& frames, std::vector<uint8_t>* out) {
    out->assign(tavo::tool::raw_frame_bytes(frames.width, frames.height), 0);
    py::gil_scoped_acquire held;
    tavo::tool::Fused fused;
    try {
      py::array target(py::dtype::of<uint8_t>(), {static_cast<py::ssize_t>(out->size())}, {py::ssize_t{1}},
                       out->data(), py::capsule(out->data(), [](void*) {}));
      const py::tuple t = fuse_into(view_of(frames.data[0]), view_of(frames.data[1]), view_of(frames.data[2]), target,
                                    frames.width, frames.height, frames.layout);
      fused.result = t[0].cast<int32_t>();
      fused.ms = t[1].cast<double>();
      fused.log = t[2].cast<std::string>();
    } catch (py::error_already_set& e) {
      raised.emplace(std::move(e));
      fused.interrupted = true;
    }
    return fused;
  };
  tavo::tool::ReplayRecord record;
  {
    py::gil_scoped_release free;
    record = tavo::tool::replay_capture(jobs[0], inputs, capture);
  }
  if (raised) throw std::move(*raised);
  return to_python(tavo::tool::record_json(record));
}

py::object compare(const Bytes& a, const Bytes& b, int32_t width, int32_t height, const std::string& layout) {
  const ChromaLayout chroma = layout_of(layout);
  expect_bytes(a, tavo::tool::raw_frame_bytes(width, height), "the first frame");
  expect_bytes(b, tavo::tool::raw_frame_bytes(width, height), "the second frame");
  tavo::tool::Json figures;
  {
    py::gil_scoped_release free;
    figures = tavo::tool::comparison_json(a.data(), b.data(), width, height, chroma);
  }
  return to_python(figures);
}

}  // namespace

PYBIND11_MODULE(_native, m) {
  m.doc() = "libtavo_lumo_hdr and the tavo-hdr tool's file and colour code; use the tavo_hdr package";
  m.attr("__version__") = TAVO_HDR_VERSION_STRING;
  m.attr("MIN_WIDTH") = TAVO_HDR_MIN_WIDTH;
  m.attr("MIN_HEIGHT") = TAVO_HDR_MIN_HEIGHT;
  m.attr("MAX_PIXELS") = TAVO_HDR_MAX_PIXELS;
  m.def("pool_init", &tavo_hdr_pool_init);
  m.def("pool_destroy", [] {
    py::gil_scoped_release unlocked;  // waits for a running capture
    return tavo_hdr_pool_destroy();
  });
  m.def("set_stop_flag", &tavo_hdr_set_stop_flag, py::arg("flag"));
  m.def("hdr_function", &hdr_function, py::arg("dark").noconvert(), py::arg("normal").noconvert(),
        py::arg("bright").noconvert(), py::arg("out").noconvert(), py::arg("width"), py::arg("height"),
        py::arg("layout"));
  m.def("read_raw", &read_raw, py::arg("path"), py::arg("width"), py::arg("height"));
  m.def("write_raw", &write_raw, py::arg("path"), py::arg("array").noconvert());
  m.def("parse_dump_name", &parse_dump_name, py::arg("base"));
  m.def("collect_captures", &collect_captures, py::arg("arg"));
  m.def("dumped_output", &dumped_output, py::arg("prefix"));
  m.def("yuv_to_rgb", &yuv_to_rgb, py::arg("frame").noconvert(), py::arg("width"), py::arg("height"),
        py::arg("layout"));
  m.def("rgb_to_yuv", &rgb_to_yuv, py::arg("rgb").noconvert(), py::arg("width"), py::arg("height"),
        py::arg("layout"));
  m.def("replay", &replay, py::arg("prefix"), py::arg("out_dir"), py::arg("fuse_into"));
  m.def("compare", &compare, py::arg("a").noconvert(), py::arg("b").noconvert(), py::arg("width"), py::arg("height"),
        py::arg("layout"));
  m.def("worker_cores", &tavo::tool::worker_cores, py::arg("worker"), py::arg("workers"), py::arg("allowed"));
  m.def("bindcore_value", &tavo::tool::bindcore_value, py::arg("cores"));
}
