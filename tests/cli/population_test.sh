# A new project with a population: what it takes is told beforehand, and what can't fit is refused.
expect 0 "$OV" new rocks.ovd --like plain --seed 5 --with populator
expect 2 "$OV" new other.ovd --with dragons
expect 0 "$OV" check rocks.ovd

# 10 by 10 blocks of 10 by 10 places.
expect 0 "$OV" render rocks.ovd -o rocks.png --dry-run
prints "Populator 01: 10 000 copies, "
prints "; budget "
expect 0 "$OV" render rocks.ovd -o rocks.png --dry-run --json --memory 1G
for field in '"copies": 10000' '"node": "/Populator 01"' '"budget": 1073741824' '"fits": true' '"path": "rocks.png"'; do
  prints "$field"
done
expect 2 "$OV" render rocks.ovd -o rocks.png --json
expect 5 "$OV" render rocks.ovd -o rocks.png --dry-run --json --memory 1M
prints '"fits": false'
shows "Populator 01: 10 000 copies, "
expect 5 "$OV" render rocks.ovd -o rocks.png --width 32 --height 18 -s 1 --memory 10M \
  --set "Populator 01.object_spacing=1"
shows "copies, "
[ ! -e rocks.png ] || fail "a refused render left a picture"
expect 5 "$OV" render rocks.ovd -o rocks.png --dry-run --memory 100M --set "Populator 01.object_spacing=0.01"
shows "That doesn't fit."

# No more than one message, and no picture, of what makes no sense.
for change in "object_spacing=0" "object_spacing=-1" "object_spacing=1e-300" "area_size_xz=1e9 1e9" \
  "area_size_xz=1e300 1" "object_maker=/Populator 01" "object_maker=/Planet 01" "use_density_shader=1"; do
  code=0
  "$OV" render rocks.ovd -o rocks.png --width 32 --height 18 -s 1 --set "Populator 01.$change" >out 2>err || code=$?
  case $code in 1 | 5) ;; *) fail "exit code $code with $change" ;; esac
  [ "$(grep -c '^error' err)" = 1 ] || fail "not one error with $change"
  [ ! -e rocks.png ] || fail "a refused render left a picture"
done
expect 0 "$OV" render rocks.ovd -o rocks.png --width 32 --height 18 -s 1 --set "Populator 01.object_maker="
shows "There is no object to populate with"
expect 3 "$OV" check rocks.ovd --set "Populator 01.object_spacing=nan"

# The same picture for any number of threads.
for threads in 1 3; do
  expect 0 "$OV" render rocks.ovd -o "rocks$threads.exr" --width 64 --height 36 -s 1 --threads $threads
done
cmp rocks1.exr rocks3.exr || fail "threads change the picture"
