# SPDX-License-Identifier: Apache-2.0
"""Keys, signatures, ciphers."""

from inputs import text
from program import Program

TEXT = {"text": lambda: text(400_000)}

PROGRAMS = (
    Program("openssl", ("openssl",), files=TEXT, alone=("openssl",), emulated=True, ignore=("*.pem", "*.sig", "*.cms"), work=r"""
export OPENSSL_CONF=/dev/null
for d in md5 sha256 sha3-512 blake2s256; do openssl dgst -$d text; done; openssl enc -aes-256-cbc -pbkdf2 -S 0011223344556677 -k secret -in text -out text.enc; openssl enc -d -aes-256-cbc -pbkdf2 -S 0011223344556677 -k secret -in text.enc | cmp - text
openssl genrsa -out rsa.pem 2048 2>/dev/null; openssl ecparam -name prime256v1 -genkey -noout -out ec.pem
for k in rsa ec; do openssl pkey -in $k.pem -pubout -out $k.pub.pem; openssl dgst -sha256 -sign $k.pem -out $k.sig text; openssl dgst -sha256 -verify $k.pub.pem -signature $k.sig text; done
openssl req -x509 -new -key ec.pem -out cert.pem -days 9 -subj /CN=a -config /dev/null -addext basicConstraints=CA:TRUE 2>/dev/null || openssl version | cut -c1-9
openssl prime -hex 7FFFFFFF; openssl base64 -in text | md5sum; openssl dgst -sha256 -verify ec.pub.pem -signature rsa.sig text 2>/dev/null || echo refused: $?; openssl ciphers -v 'ECDHE:!SHA1' | wc -l
"""),
    Program("ssh-keygen", ("openssh-client",), alone=("ssh-keygen",), emulated=True, ignore=("key*",), work=r"""
for t in ed25519 ecdsa rsa; do ssh-keygen -q -t $t -N '' -C c -f key.$t; ssh-keygen -l -f key.$t | cut -d' ' -f1,3,4; ssh-keygen -e -m PKCS8 -f key.$t.pub | head -n 1; done
echo text | ssh-keygen -q -Y sign -f key.ed25519 -n file >key.sig; echo "worker $(cat key.ed25519.pub)" >key.allowed; echo text | ssh-keygen -Y verify -f key.allowed -I worker -n file -s key.sig | cut -d' ' -f1-4; ssh-keygen -R none -f key.allowed 2>&1 || echo $?
"""),
    Program("gnupg", ("gnupg",), files=TEXT, ignore=("g/*", "*.gpg", "*.asc"), work=r"""
export GNUPGHOME=/work/g; mkdir -m 700 g; gpg --batch -q --passphrase '' --quick-gen-key worker@room ed25519 cert,sign never 2>/dev/null; gpg --batch -q --passphrase '' --quick-add-key $(gpg --batch -q --with-colons -k 2>/dev/null | sed -n 's/^fpr:*\([0-9A-F]*\):/\1/p' | head -n 1) cv25519 encr never
gpg --batch -q --trust-model always -r worker@room -o text.gpg -e text; gpg --batch -q -d text.gpg 2>/dev/null | cmp - text; gpg --batch -q -a -b -o text.asc text; gpg --batch -q --verify text.asc text 2>&1 | grep -c Good
gpg --batch -q --passphrase a --pinentry-mode loopback -c -o c.gpg text; gpg --batch -q --passphrase a --pinentry-mode loopback -d c.gpg 2>/dev/null | cmp - text; gpg --batch --print-md SHA512 text; gpgconf --kill all
"""),
)
