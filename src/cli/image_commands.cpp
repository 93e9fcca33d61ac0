// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli info, convert: what the image readers say of files, and
// conversion between formats through the multi-format reader and writer.
#include <cstdio>
#include <filesystem>
#include <random>

#include "app/command_line.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "imaging/image_list.h"
#include "imaging/multi_io.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

img::file_info ReadInfo(const std::string& name) {
  img::multi_reader reader;
  img::file_info info;
  if (!reader.info(name, &info)) throw std::runtime_error("could not read file: " + name);
  return info;
}

void PrintInfo(const img::file_info& info, bool json) {
  const bool has_alpha = info.bit_count == 32;
  if (json) {
    Json j;
    j.begin_object()
        .key("name")
        .value(info.name)
        .key("format")
        .value(info.format)
        .key("width")
        .value(info.width)
        .key("height")
        .value(info.height)
        .key("bit_count")
        .value(info.bit_count)
        .key("uncompressed")
        .value(info.uncompressed)
        .key("has_alpha")
        .value(has_alpha)
        .end_object();
    std::printf("%s\n", j.str().c_str());
  } else {
    std::printf("%s: %s, %u x %u, %u bits per pixel, %s, %s\n", info.name.c_str(),
                info.format == "???" ? "read by the image library" : info.format.c_str(),
                info.width, info.height, info.bit_count,
                info.uncompressed ? "uncompressed" : "compressed",
                has_alpha ? "with alpha" : "no alpha");
  }
}

}  // namespace

int RunInfo(const std::vector<std::string>& args) {
  Options options(args, {"--json", "--yes"}, {});
  const bool json = options.flag("--json");
  if (options.positional().empty()) throw UsageError("info needs at least one FILE");
  int status = 0;
  for (const auto& name : options.positional()) {
    if (app::IsProjectPath(name)) {
      status |= PrintProjectInfo(name, json, options.flag("--yes"));
      continue;
    }
    try {
      PrintInfo(ReadInfo(name), json);
    } catch (const std::exception& e) {
      status = ReportFailure("reading image information", e, json);
    }
  }
  return status;
}

int RunConvert(const std::vector<std::string>& args) {
  Options options(args, {"--alpha", "--no-alpha", "--json"}, {"--format"});
  const bool json = options.flag("--json");
  if (options.positional().size() != 2) throw UsageError("convert needs IN and OUT");
  if (options.flag("--alpha") && options.flag("--no-alpha"))
    throw UsageError("--alpha and --no-alpha exclude each other");
  const std::string& in = options.positional()[0];
  const std::string& out = options.positional()[1];
  std::string staging;
  try {
    std::string format =
        options.has("--format") ? options.value("--format") : img::upper_extension(out);
    if (format.empty())
      throw std::runtime_error("cannot tell the output format: give --format or an extension");

    img::multi_reader reader;
    img::file_info info;
    if (!reader.info(in, &info)) throw std::runtime_error("could not read file: " + in);
    img::image picture;
    reader.read(in, picture);
    const bool with_alpha =
        options.flag("--alpha") || (!options.flag("--no-alpha") && info.bit_count == 32);

    staging = StagingName(out);
    img::multi_writer writer;
    const uint64_t bytes = writer.write(staging, format, picture, with_alpha);
    fs::rename(staging, out);
    staging.clear();
    if (json) {
      Json j;
      j.begin_object().key("bytes").value(bytes).end_object();
      std::printf("%s\n", j.str().c_str());
    } else {
      std::printf("%llu\n", static_cast<unsigned long long>(bytes));
    }
    return 0;
  } catch (const std::exception& e) {
    if (!staging.empty()) {
      std::error_code ec;
      fs::remove(staging, ec);
    }
    return ReportFailure("converting image", e, json);
  }
}

const Command kInfoCommand = {
    "info", "what the image readers say of files",
    "usage: velomar-cli info [--json] [--yes] FILE...\n"
    "\n"
    "Describes each image file: format (\"BMP\", \"TGA\", or \"???\" when the image\n"
    "library reads it), size, bits per pixel, compression and alpha.\n"
    "With --json, one JSON object per file and line:\n"
    "  {\"name\", \"format\", \"width\", \"height\", \"bit_count\", \"uncompressed\", "
    "\"has_alpha\"}\n"
    "\n"
    "A project (.vlp) is described by its settings, segments and overlay; with\n"
    "--json as {\"length\", \"frames\", \"width\", \"height\", \"framerate\",\n"
    "\"pixel_aspect\", \"start_frame\", \"export_inaccuracy\", \"task\",\n"
    "\"export_model\", \"work_area\", \"gaps\", \"current_time\", \"preview_time\",\n"
    "\"active_segment\", \"overlay_active\", \"segments\", \"overlay\"}. Frames\n"
    "are the numbers the user sees (start_frame is the first frame's); spans\n"
    "such as \"frames\" and \"work_area\" are [FIRST, LAST], LAST one past the\n"
    "end, exactly as --span FIRST:LAST takes them; \"gaps\" are the numbers\n"
    "missing from the footage's names, [first, last] inclusive. Enumerations\n"
    "are their file words. --yes answers questions that opening the project\n"
    "raises.\n",
    RunInfo};

const Command kConvertCommand = {
    "convert", "convert an image to another format",
    "usage: velomar-cli convert [--alpha|--no-alpha] [--format WORD] [--json] IN OUT\n"
    "\n"
    "Reads IN with the multi-format reader and writes OUT. The format is OUT's\n"
    "extension unless --format gives it (BMP, TGA, PNG, JPEG, GIF, TIFF, DPX, EXR).\n"
    "Alpha is kept when IN has it, unless --alpha or --no-alpha says otherwise.\n"
    "Prints the number of bytes written. A failed conversion leaves OUT untouched.\n",
    RunConvert};

}  // namespace cli
