// The toolchain buttons of the start screen. Both jobs work on fixed paths two
// folders above the working directory and report on the console only.
#include "app/NuklearConfig.h"
#include "app/StartScreen.h"
#include "image/Builder.h"
#include "linkmap/Rewriter.h"

namespace StartScreenSpace {

void drawToolchainRow(nk_context* ctx) {
  nk_layout_row_dynamic(ctx, 25, 2);
  if (nk_button_label(ctx, "parse map1")) {
    const RewritePaths& paths = defaultRewritePaths;
    rewriteLinkerScript(paths.funcList, paths.map, paths.script, paths.output);
  }
  if (nk_button_label(ctx, "build aelf")) {
    const AelfBuildPaths& paths = defaultAelfBuildPaths;
    buildAelf(paths.map, paths.cfg, paths.object, paths.res, paths.output);
  }
}

} // namespace StartScreenSpace
