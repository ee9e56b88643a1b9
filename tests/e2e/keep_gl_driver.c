/* Preloaded into the ASan-built GUI by its tests: glfwTerminate unloads Mesa's driver, whose
 * blocks then look like leaks "from <unknown module>" that no suppression can name. A
 * reference never dropped keeps it loaded; our own allocations stay leak-checked. */
#include <dlfcn.h>

__attribute__((constructor)) static void keepGlDriverLoaded(void) {
  dlopen(QMLOAD_GL_DRIVER, RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
}
