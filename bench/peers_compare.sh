#!/usr/bin/env bash
# usage: bench/peers_compare.sh [RUNS] [WARMUP]
#
# Whole-process timings of verdantglass-cli next to peer tools in the same run,
# on the shared peer-benchmark inputs (a real 24 MP photograph, 20 x 12 MP
# copies):
#   edit24  one 24 MP JPEG through the typical edit (bench/typical-recipe.json:
#           exposure +0.5, contrast 20, saturation 15, vignette, sharpening),
#           JPEG quality 0.9;
#   batch   the 20 x 12 MP folder: verdantglass-cli batch with the "vivid"
#           preset, against each peer's typical edit on every file.
# Peers default to libvips in one process and the vips command line (PEERS=...).
# Needs the peer scripts beside the repository (../shared/bench/peers, or
# PEERS_DIR); without them it says so and does nothing. Quote medians; the
# machine must be otherwise idle.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
peers_dir=${PEERS_DIR:-$repo/../shared/bench/peers}
if [[ ! -d $peers_dir ]]; then
  echo "peers_compare: no peer scripts at $peers_dir; skipping the peer comparison"
  exit 0
fi
peers_dir=$(cd "$peers_dir" && pwd)
source "$peers_dir/common.sh"
runs=${1:-3} warm=${2:-1}
peers=${PEERS:-libvips vips}

# Bench-only tools: GNU time, and libvips for the inputs and the peers.
need=()
command -v vips >/dev/null || need+=(libvips-tools)
[[ -x /usr/bin/time ]] || need+=(time)
ruby -e 'require "vips"' 2>/dev/null || need+=(ruby-vips)
if [[ ${#need[@]} -gt 0 ]]; then
  sudo=(); [[ $(id -u) -eq 0 ]] || sudo=(sudo)
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

D=$PEERBENCH_DIR
[[ -s $D/photo_24mp.jpg && -d $D/batch12 ]] || bash "$peers_dir/make_inputs.sh" >/dev/null
out=$D/out
mkdir -p "$out"
cli=$repo/build/bin/verdantglass-cli
export VERDANTGLASS_DATA_DIR=$D/vg-data   # no saved edits from the user's folder

row() {  # task peer command...
  local task=$1 peer=$2; shift 2
  "$peers_dir/time_runs.sh" -n "$runs" -w "$warm" -- "$@" |
    awk -v t="$task" -v p="$peer" '$1=="wall"{w=$4} $1=="cpu"{c=$4} $1=="peak"{m=$4}
      /exited non-zero/{bad=1}
      END{printf "%-8s %-14s %10s %10s %10.0f%s\n", t, p, w, c, m, bad ? "  (some runs failed)" : ""}'
}

printf "%-8s %-14s %10s %10s %10s\n" task tool wall_s cpu_s peak_MiB
row edit24 verdantglass "$cli" export "$D/photo_24mp.jpg" -o "$out/vg_edit24.jpg" \
  --recipe "$repo/bench/typical-recipe.json" --quality 0.9
for p in $peers; do
  row edit24 "$p" bash "$peers_dir/edit_$p.sh" edit "$D/photo_24mp.jpg" "$out/${p}_edit24.jpg"
done
row batch verdantglass "$cli" batch "$D/batch12" "$out/batch_vg" --preset vivid \
  --no-saved-edits --no-skip-existing --quality 0.9
for p in $peers; do
  row batch "$p" bash "$peers_dir/batch.sh" "$p" "$D/batch12" "$out/batch_$p"
done
