#!/usr/bin/env bash
# Keys, certificates, signatures and ciphertexts made by the openssl command, for the crypto
# suites to check our results against OpenSSL's on every build (the Windows one included).
set -euo pipefail
out="$1"
mkdir -p "$out"
cd "$out"
ossl() { openssl "$@" 2>/dev/null; }

printf 'message signed by openssl for the vorelcrypto suites' > msg.bin
printf 'short secret' > short.bin

ossl genpkey -algorithm SM2 -out sm2.key.pem
ossl pkcs8 -topk8 -nocrypt -in sm2.key.pem -outform DER -out sm2.key.der
ossl ec -in sm2.key.pem -outform DER -out sm2.sec1.der
# SEC1 in PEM as openssl writes it: OpenSSL 3.0 labels an SM2 key "SM2 PRIVATE KEY"; other
# releases write "EC PRIVATE KEY", after "EC PARAMETERS" when asked for them.
ossl ec -in sm2.key.pem -out sm2.sec1.pem
{ ossl ec -in sm2.key.pem -param_out; cat sm2.sec1.pem; } | sed 's/-----\(BEGIN\|END\) SM2 /-----\1 EC /' \
  > sm2.sec1.ec.pem
ossl pkey -in sm2.key.pem -pubout -out sm2.pub.pem
ossl pkey -in sm2.key.pem -pubout -outform DER -out sm2.pub.der
ossl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.key.pem
ossl pkcs8 -topk8 -nocrypt -in rsa.key.pem -outform DER -out rsa.key.der
ossl rsa -in rsa.key.pem -traditional -outform DER -out rsa.pkcs1.der
ossl pkey -in rsa.key.pem -pubout -outform DER -out rsa.pub.der
ossl pkey -in rsa.key.pem -pubout -out rsa.pub.pem

# Certificates: SM2 with SM3 (one year and two years), RSA with SHA-256.
ossl req -new -x509 -key sm2.key.pem -sm3 -sigopt distid:1234567812345678 -days 365 -set_serial 0x1234 \
  -subj "/C=CN/O=Vorel/CN=Vorel SM2 Test" -outform DER -out sm2.crt.der
ossl req -new -x509 -key sm2.key.pem -sm3 -sigopt distid:1234567812345678 -days 730 \
  -subj "/C=CN/O=Vorel/CN=Vorel SM2 Later" -outform DER -out sm2-later.crt.der
ossl req -new -x509 -key rsa.key.pem -sha256 -days 365 -subj "/C=CN/O=Vorel/CN=Vorel RSA Test" \
  -outform DER -out rsa.crt.der
ossl x509 -inform DER -in sm2.crt.der -out sm2.crt.pem
ossl pkcs8 -topk8 -v2 aes-256-cbc -passout pass:secret -in sm2.key.pem -out sm2.key.enc.pem
for c in sm2 sm2-later rsa; do
  ossl x509 -inform DER -in $c.crt.der -noout -subject -nameopt RFC2253 -dateopt iso_8601 -startdate -enddate \
    > $c.crt.txt
done

# SM2 signature over msg.bin with the default identity; RSA PKCS#1 v1.5 without hashing.
ossl dgst -sm3 -sign sm2.key.pem -sigopt distid:1234567812345678 -out msg.sm2.sig msg.bin
ossl pkeyutl -sign -inkey rsa.key.pem -pkeyopt rsa_padding_mode:pkcs1 -in short.bin -out short.rsa.sig
ossl pkeyutl -encrypt -pubin -inkey rsa.pub.pem -pkeyopt rsa_padding_mode:pkcs1 -in short.bin -out short.rsa.enc

# SM2 ciphertexts (DER form) of plaintexts of many lengths, some starting with zero bytes.
for i in $(seq 1 40); do
  head -c $((i * 3)) /dev/urandom > p$i.bin
  if [ $((i % 4)) -eq 0 ]; then { printf '\0\0'; cat p$i.bin; } > t && mv t p$i.bin; fi
  ossl pkeyutl -encrypt -pubin -inkey sm2.pub.pem -in p$i.bin -out p$i.sm2.der
done
touch stamp
