#pragma once
// Nuklear's copy and paste on the Windows clipboard.
struct nk_context;

// Installs the clipboard hooks in ctx: copied text goes to the clipboard as
// UTF-16 text, and paste inserts the clipboard's text into the edit field.
void connectClipboard(nk_context* ctx);
