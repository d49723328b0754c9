#!/usr/bin/env bash
# Key pairs and certificates for the container suites, made by the openssl command: SM2 keys s1-s9,
# RSA keys r1-r2 (PKCS#8 DER), and certificates with chosen subjects and validity (DER), issued by
# a test CA so that their subject, start and end are exactly as named here.
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
touch stamp
