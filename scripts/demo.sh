#!/usr/bin/env bash
# The whole signing story on a fresh software token, through skftool and the VorelSKF library:
# a token with an SM2 signing and an SM2 encryption key pair, a certificate made with openssl,
# listing, login, a signature that openssl verifies, a ciphertext openssl made that the token
# decrypts, and a file kept on the token. Everything it makes stays in one temporary folder,
# removed at the end. --windows runs the Windows build of the tools and the DLL under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."

windows=false
[ "${1:-}" = "--windows" ] && windows=true

bash scripts/install-deps.sh
if $windows; then
  echo "== Building the Windows tools and library (mingw-w64)"
  cmake -S . -B build/windows -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
    >/dev/null
  cmake --build build/windows -j"$(nproc)" --target skftool vorel-token vorelskf >/dev/null
  bin=build/windows/bin
  export WINEDEBUG=-all WINEPREFIX="${WINEPREFIX:-$PWD/build/wineprefix}"
  wine=/usr/lib/wine/wine64
  skftool_exe=("$wine" "$bin/skftool.exe")
  token_exe=("$wine" "$bin/vorel-token.exe")
  # Wine's drive Z: is the root of the host's file system.
  path() { printf 'Z:%s' "${1//\//\\}"; }
else
  echo "== Building the tools and library"
  cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build/linux -j"$(nproc)" --target skftool vorel-token vorelskf >/dev/null
  bin=build/linux/bin
  skftool_exe=("$bin/skftool")
  token_exe=("$bin/vorel-token")
  path() { printf '%s' "$1"; }
fi

tmp=$(mktemp -d "${TMPDIR:-/tmp}/vorelskf-demo.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
user_pin=12345678
so_pin=87654321
VOREL_TOKEN_DIR=$(path "$tmp/tokens")
VOREL_SKF_LOG_PATH=$(path "$tmp/vorelskf.log")
export VOREL_TOKEN_DIR VOREL_SKF_LOG_PATH
export VOREL_TOKEN_PIN=$user_pin VOREL_TOKEN_SO_PIN=$so_pin SKFTOOL_PIN=$user_pin
unset SKFTOOL_SO_PIN VOREL_SKF_LOG_LEVEL

# step "what it does" command...: runs the command quietly; one line with the result, or the
# command's own explanation and a stop.
step() {
  local what=$1
  shift
  if "$@" >"$tmp/out" 2>"$tmp/err"; then
    printf '  ok    %s\n' "$what"
  else
    printf '  FAIL  %s\n' "$what"
    sed 's/^/        /' "$tmp/err" "$tmp/out" | tr -d '\r'
    echo "Demo stopped at the first failure (the log: $tmp/vorelskf.log is removed on exit)."
    exit 1
  fi
}
shown() { tr -d '\r' <"$tmp/out"; }
skftool() { "${skftool_exe[@]}" --config "$(path "$tmp/vorelskf.json")" "$@"; }

echo "== A software token in $tmp (user PIN $user_pin, SO PIN $so_pin)"
step "created token 3#DEMO" "${token_exe[@]}" init --type 3 --serial DEMO --label "VorelSKF demo" --kdf-iterations 10000
step "generated an SM2 signing key pair" "${token_exe[@]}" keygen --type 3 --alg sm2 --use sign --label demo
step "generated an SM2 encryption key pair" "${token_exe[@]}" keygen --type 3 --alg sm2 --use enc --label demo
printf '{ "devices": [ { "name": "VorelSKF demo token", "type": 3 } ] }\n' >"$tmp/vorelskf.json"
step "wrote vorelskf.json: device type 3 is a software token" test -s "$tmp/vorelskf.json"

echo "== A certificate for the signing key, made with openssl"
step "exported the signing public key" skftool export-pubkey --container demo --out "$(path "$tmp/sign.pem")"
step "made a demo CA" openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 \
  -subj "/CN=VorelSKF demo CA" -keyout "$tmp/ca.key" -out "$tmp/ca.crt"
step "issued a certificate for the signing key" openssl x509 -new -force_pubkey "$tmp/sign.pem" \
  -subj "/CN=VorelSKF demo signer" -CA "$tmp/ca.crt" -CAkey "$tmp/ca.key" -days 30 -out "$tmp/sign.crt"
step "stored the certificate on the token" skftool import-cert --container demo --in "$(path "$tmp/sign.crt")"

echo "== Through skftool and the library"
step "listed the devices" skftool list
shown | sed 's/^/        /'
step "read the device information" skftool info
shown | grep -E '^(Label|Serial number|Asymmetric)' | sed 's/^/        /'
step "listed the containers" skftool containers
shown | sed 's/^/        /'
step "verified the user PIN" skftool login

printf 'VorelSKF demo: a document to sign.\n' >"$tmp/document.txt"
step "signed document.txt with SM2 (SM3 with Z)" skftool sign --container demo --in "$(path "$tmp/document.txt")" \
  --out "$(path "$tmp/document.sig")"
step "openssl verified the signature" openssl dgst -sm3 -verify "$tmp/sign.pem" -sigopt distid:1234567812345678 \
  -signature "$tmp/document.sig" "$tmp/document.txt"
step "skftool verified it against the certificate" skftool verify --cert "$(path "$tmp/sign.crt")" \
  --in "$(path "$tmp/document.txt")" --sig "$(path "$tmp/document.sig")"

step "exported the encryption public key" skftool export-pubkey --container demo --use enc \
  --out "$(path "$tmp/enc.pem")"
printf 'a secret for the token\n' >"$tmp/secret.txt"
step "openssl encrypted secret.txt to it (SM2)" openssl pkeyutl -encrypt -pubin -inkey "$tmp/enc.pem" \
  -in "$tmp/secret.txt" -out "$tmp/secret.der"
step "the token decrypted it" skftool decrypt --container demo --in "$(path "$tmp/secret.der")" \
  --out "$(path "$tmp/secret.back")"
step "the plaintext came back unchanged" cmp "$tmp/secret.txt" "$tmp/secret.back"

step "created file 'notes' on the token (64 bytes, user may read)" skftool create-file --name notes --size 64 \
  --read-rights user
printf 'kept on the token' >"$tmp/notes.txt"
step "wrote notes.txt into it" skftool write-file --name notes --in "$(path "$tmp/notes.txt")"
step "read it back" skftool read-file --name notes --size 17 --out "$(path "$tmp/notes.back")"
step "the file came back unchanged" cmp "$tmp/notes.txt" "$tmp/notes.back"

echo "Success: the token signed, decrypted and kept a file, and openssl agreed."
