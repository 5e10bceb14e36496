"""Certificates of 127.0.0.1 that sign themselves, of any time."""

import os
import subprocess

SETTINGS = """
[ca]
default_ca = own
[own]
new_certs_dir = {folder}
database = {folder}/{name}.index
serial = {folder}/{name}.serial
default_md = sha256
policy = any
x509_extensions = server
unique_subject = no
[any]
commonName = supplied
[req]
distinguished_name = names
[names]
[server]
subjectAltName = IP:127.0.0.1
basicConstraints = critical, CA:true
"""


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def make_certificate(folder, name, begin, end):
    """Paths of a certificate that holds between two times (YYYYMMDD000000Z) and of its key."""
    path = os.path.join(folder, name)
    with open(f"{path}.cnf", "w") as stream:
        stream.write(SETTINGS.format(folder=folder, name=name))
    open(f"{path}.index", "w").close()
    with open(f"{path}.serial", "w") as stream:
        stream.write("01\n")
    openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-config", f"{path}.cnf",
            "-subj", "/CN=127.0.0.1", "-keyout", f"{path}.key", "-out", f"{path}.csr")
    openssl("ca", "-batch", "-selfsign", "-notext", "-config", f"{path}.cnf", "-in", f"{path}.csr",
            "-keyfile", f"{path}.key", "-startdate", begin, "-enddate", end, "-out", f"{path}.pem")
    return f"{path}.pem", f"{path}.key"
