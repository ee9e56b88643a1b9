/* Preloaded into the ASan-built GUI by its end-to-end tests.
 *
 * Mesa's software driver (swrast_dri.so) is loaded by the GL stack when the window
 * gets its context and unloaded again by glfwTerminate. Blocks it allocated and
 * still points at from its own static data then look unreferenced, and
 * LeakSanitizer reports them at exit as leaks "from <unknown module>" (measured:
 * 56 and 128 bytes, on some runs only). They are not ours and, since the module is
 * gone, no suppression can name them. Keeping the driver loaded for the life of the
 * process makes them reachable again, while every allocation of our own code stays
 * under leak checking. */
#include <dlfcn.h>

__attribute__((constructor)) static void keepGlDriverLoaded(void) {
  /* A second reference that is never dropped: the driver's dlclose by the GL stack
     no longer unloads it. Absent on a machine without Mesa: nothing to keep. */
  dlopen(QMLOAD_GL_DRIVER, RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
}
