#!/usr/bin/env bash
# Data for the device suites, made by the openssl command: SM2 keys s1-s9 and RSA keys r1-r2
# (PKCS#8 DER); certificates with chosen subjects and validity (DER) issued by a test CA, so that
# their subject, start and end are exactly as named here; ciphertexts, digests, a signature and
# wrapped session keys for the symmetric exports.
set -euo pipefail
out="$1"
mkdir -p "$out"
cd "$out"
ossl() { openssl "$@" 2>/dev/null; }

cat > ca.cnf <<'CNF'
[ca]
default_ca = test
[test]
database = index.txt
new_certs_dir = .
serial = serial
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
CNF
: > index.txt
echo 1000 > serial
ossl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out ca.key
ossl req -new -x509 -key ca.key -days 36500 -subj "/CN=Vorel Container Test CA" -out ca.crt

for k in s1 s2 s3 s4 s5 s6 s7 s8 s9; do
  ossl genpkey -algorithm SM2 -out $k.pem
  ossl pkcs8 -topk8 -nocrypt -in $k.pem -outform DER -out $k.der
done
for k in r1 r2; do
  ossl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out $k.pem
  ossl pkcs8 -topk8 -nocrypt -in $k.pem -outform DER -out $k.der
done

# issue <key> <subject CN> <start> <end>
issue() {
  local opts=()
  case $1 in s*) opts=(-sm3 -sigopt distid:1234567812345678) ;; esac
  ossl req -new -key $1.pem "${opts[@]}" -subj "/CN=$2" -out $1.csr
  case $1 in s*) opts=(-vfyopt distid:1234567812345678) ;; *) opts=() ;; esac
  ossl ca -batch -config ca.cnf -cert ca.crt -keyfile ca.key -in $1.csr "${opts[@]}" -startdate "$3" -enddate "$4" \
    -notext -out $1.crt.pem
  ossl x509 -in $1.crt.pem -outform DER -out $1.crt
}
issue s1 Alice 20250101000000Z 20300101000000Z
issue s2 Alice 20250101000000Z 20300101000000Z  # agrees with s1
issue s3 Alice 20250101000000Z 20310101000000Z  # ends later than s1
issue s4 Bob 20250101000000Z 20320101000000Z
issue s5 Dave 20250101000000Z 20300101000000Z   # another subject than s1
issue r1 Carol 20250101000000Z 20300101000000Z
issue r2 Carol 20250101000000Z 20300101000000Z
# Ciphers: plain.bin (100 bytes) with PKCS#7 padding, plain96.bin without. Keys: 16 bytes (DES
# uses the first 8; 3DES ECB is the two-key form), 24 for three-key 3DES CBC.
head -c 100 /dev/urandom > plain.bin
head -c 96 plain.bin > plain96.bin
k16=0123456789abcdeffedcba9876543210
k24=0123456789abcdeffedcba98765432100011223344556677
iv=000102030405060708090a0b0c0d0e0f
legacy=(-provider legacy -provider default)
cipher() {  # name openssl-cipher key iv
  local ivopt=()
  [ -n "$4" ] && ivopt=(-iv "$4")
  ossl enc "-$2" "${legacy[@]}" -K "$3" "${ivopt[@]}" -in plain.bin -out "$1.pad.bin"
  ossl enc "-$2" "${legacy[@]}" -K "$3" "${ivopt[@]}" -nopad -in plain96.bin -out "$1.nopad.bin"
}
cipher sm4-ecb sm4-ecb $k16 ""
cipher sm4-cbc sm4-cbc $k16 $iv
cipher aes-ecb aes-128-ecb $k16 ""
cipher aes-cbc aes-128-cbc $k16 $iv
cipher des-ecb des-ecb ${k16:0:16} ""
cipher des-cbc des-cbc ${k16:0:16} ${iv:0:16}
cipher 3des-ecb des-ede $k16 ""
cipher 3des-cbc des-ede3-cbc $k24 ${iv:0:16}
for h in sm3 sha1 sha256; do ossl dgst -$h -binary -out plain.$h plain.bin; done

# An SM2 signature of plain.bin under another identity than the default, to check Z against.
ossl pkey -in s1.pem -pubout -outform DER -out s1.pub.der
ossl pkey -in s1.pem -pubout -out s1.pub.pem
ossl dgst -sm3 -sign s1.pem -sigopt distid:ALICE123@YAHOO.COM -out plain.alice.sig plain.bin
# An RSA PKCS#1 v1.5 signature of plain.bin over its SHA-256 DigestInfo, as clients sign files.
ossl dgst -sha256 -sign r1.pem -out plain.r1.sig plain.bin

# Session keys wrapped for the encryption key pairs: 16 and 24 bytes, RSA PKCS#1 v1.5 and SM2.
printf '\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76\x54\x32\x10' > key16.bin  # k16
head -c 24 /dev/urandom > key24.bin
ossl pkey -in r1.pem -pubout -out r1.pub.pem
ossl pkey -in s2.pem -pubout -out s2.pub.pem
for k in key16 key24; do
  ossl pkeyutl -encrypt -pubin -inkey r1.pub.pem -pkeyopt rsa_padding_mode:pkcs1 -in $k.bin -out $k.r1.bin
  ossl pkeyutl -encrypt -pubin -inkey s2.pub.pem -in $k.bin -out $k.s2.der
done
# RSA: a PKCS#1 v1.5 signature of plain64.bin (64 bytes, signed as they are) with r2; a block
# below r1's modulus, raw-encrypted with r1's public key.
head -c 64 plain.bin > plain64.bin
ossl pkeyutl -sign -inkey r2.pem -pkeyopt rsa_padding_mode:pkcs1 -in plain64.bin -out plain64.r2.sig
{ printf '\0'; head -c 127 /dev/urandom; } > block.bin
ossl pkeyutl -encrypt -pubin -inkey r1.pub.pem -pkeyopt rsa_padding_mode:none -in block.bin -out block.r1.raw

# SM2 ciphertexts for s2 of plaintexts from 1 to 200 bytes, every third starting with zero bytes.
for i in $(seq 1 20); do
  n=$(( i == 1 ? 1 : i * 10 ))
  head -c $n /dev/urandom > sm2pt$i.bin
  if [ $((i % 3)) -eq 0 ]; then { printf '\0\0'; head -c $((n - 2)) sm2pt$i.bin; } > t && mv t sm2pt$i.bin; fi
  ossl pkeyutl -encrypt -pubin -inkey s2.pub.pem -in sm2pt$i.bin -out sm2ct$i.der
done
touch stamp
