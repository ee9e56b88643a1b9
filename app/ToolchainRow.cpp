// The toolchain buttons of the start screen. Both jobs work on fixed paths two
// folders above the working directory and report on the console only.
#include "app/NuklearConfig.h"
#include "app/StartScreen.h"
#include "image/Builder.h"
#include "linkmap/Rewriter.h"

namespace StartScreenSpace {

void drawToolchainRow(nk_context* ctx) {
  nk_layout_row_dynamic(ctx, 25, 2);
  if (nk_button_label(ctx, "parse map1"))
    rewriteLinkerScript("./../../funcList.txt", "./../../out.map", "./../../target.ld");
  if (nk_button_label(ctx, "build aelf"))
    buildAelf("./../../__output__.map", "./../../test.cpp_CFG.bin", "./../../__target_out__.o",
              "./../../test.cpp_RES.bin", "./../../project.alf");
}

} // namespace StartScreenSpace
