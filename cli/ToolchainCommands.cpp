// build-aelf, rewrite-ld and info: the toolchain jobs of the GUI's start screen,
// with the GUI's fixed paths as defaults, and a reader of AELF images.
#include "cli/Commands.h"
#include "cli/ToolchainInfo.h"

#include "image/Builder.h"
#include "linkmap/Rewriter.h"

#include <memory>
#include <string>

namespace {

struct BuildOptions {
  std::string map = defaultAelfBuildPaths.map;
  std::string cfg = defaultAelfBuildPaths.cfg;
  std::string object = defaultAelfBuildPaths.object;
  std::string res = defaultAelfBuildPaths.res;
  std::string output = defaultAelfBuildPaths.output;
};

struct RewriteOptions {
  std::string funcs = defaultRewritePaths.funcList;
  std::string map = defaultRewritePaths.map;
  std::string script = defaultRewritePaths.script;
  std::string output = defaultRewritePaths.output;
};

struct InfoOptions {
  bool json = false;
  std::string image;
};

void addBuildAelf(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<BuildOptions>();
  CLI::App* cmd = app.add_subcommand(
      "build-aelf", "Build an AELF image from the link map, configuration template, flat flash image and resources");
  cmd->add_option("--map", options->map, "link map")->capture_default_str();
  cmd->add_option("--cfg", options->cfg, "configuration template (64-byte header)")->capture_default_str();
  cmd->add_option("--object", options->object, "flat flash image starting at 0x08000000")->capture_default_str();
  cmd->add_option("--res", options->res, "resource blob")->capture_default_str();
  cmd->add_option("-o,--output", options->output, "AELF image to write")->capture_default_str();
  cmd->callback([options, &exitCode] {
    exitCode =
        buildAelf(options->map, options->cfg, options->object, options->res, options->output) ? ExitOk : ExitFailed;
  });
}

void addRewriteLd(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<RewriteOptions>();
  CLI::App* cmd =
      app.add_subcommand("rewrite-ld", "Write the linker script with the addresses of the listed functions");
  cmd->add_option("--funcs", options->funcs, "function list, one name or 'mapName -> scriptName' per line")
      ->capture_default_str();
  cmd->add_option("--map", options->map, "link map")->capture_default_str();
  cmd->add_option("--template", options->script, "linker-script template")->capture_default_str();
  cmd->add_option("-o,--output", options->output, "linker script to write")->capture_default_str();
  cmd->callback([options, &exitCode] {
    switch (rewriteLinkerScript(options->funcs, options->map, options->script, options->output)) {
    case RewriteResult::Written: exitCode = ExitOk; break;
    case RewriteResult::WrittenSomeMissing: exitCode = ExitSomeMissing; break;
    case RewriteResult::NotWritten: exitCode = ExitFailed; break;
    }
  });
}

void addInfo(CLI::App& app, ExitCode& exitCode) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* cmd = app.add_subcommand("info", "Show the header and segments of an AELF image");
  cmd->add_flag("--json", options->json, "print one JSON object");
  cmd->add_option("IMAGE", options->image, "AELF image")->required();
  cmd->callback([options, &exitCode] { exitCode = printAelfInfo(options->image, options->json); });
}

} // namespace

void addToolchainCommands(CLI::App& app, ExitCode& exitCode) {
  addBuildAelf(app, exitCode);
  addRewriteLd(app, exitCode);
  addInfo(app, exitCode);
}
