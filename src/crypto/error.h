#pragma once

namespace vorel::crypto {

// Records code as this thread's last error and returns it, so failures read `return fail(CODE);`.
int fail(int code);
// Records success and returns 1.
int ok();

}  // namespace vorel::crypto
