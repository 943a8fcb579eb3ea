// A milter that looks at nothing: what the protocol itself costs. Usage: null_milter SOCKET
#include <libmilter/mfapi.h>

#include <cstdio>

namespace {

sfsistat onHeader(SMFICTX*, char*, char*) { return SMFIS_CONTINUE; }
sfsistat onBody(SMFICTX*, unsigned char*, std::size_t) { return SMFIS_CONTINUE; }
sfsistat onEnd(SMFICTX*) { return SMFIS_CONTINUE; }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: null_milter SOCKET\n");
    return 2;
  }
  static char name[] = "null";
  smfiDesc callbacks{};
  callbacks.xxfi_name = name;
  callbacks.xxfi_version = SMFI_VERSION;
  // It gets all that a milter which changes things gets, and answers as often.
  callbacks.xxfi_flags = SMFIF_ADDHDRS | SMFIF_CHGHDRS | SMFIF_CHGBODY;
  callbacks.xxfi_header = onHeader;
  callbacks.xxfi_body = onBody;
  callbacks.xxfi_eom = onEnd;
  const bool served = smfi_setconn(argv[1]) == MI_SUCCESS &&
                      smfi_register(callbacks) == MI_SUCCESS && smfi_main() == MI_SUCCESS;
  return served ? 0 : 1;
}
