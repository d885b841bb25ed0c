# `ov render` from project to file: formats, frames, threads, stopping and going on.
expect 0 "$OV" new scene.ovd --like plain --seed 1
size="--width 64 --height 36"

for kind in png jpg tif exr; do
  # shellcheck disable=SC2086
  expect 0 "$OV" render scene.ovd -o picture.$kind $size -s 1
  [ -s picture.$kind ] || fail "no picture.$kind"
done
# shellcheck disable=SC2086
{
  expect 0 "$OV" render scene.ovd -o one.png $size -s 2 --threads 1
  expect 0 "$OV" render scene.ovd -o seven.png $size -s 2 --threads 7
  cmp -s one.png seven.png || fail "the picture depends on the number of threads"
  expect 0 "$OV" render scene.ovd -o other.png $size -s 2 --seed 9
  ! cmp -s one.png other.png || fail "the seed changes nothing"
  expect 0 "$OV" render scene.ovd -o f##.png $size -s 1 -f 2-6x2
  [ "$(echo f*.png)" = "f02.png f04.png f06.png" ] || fail "wrong frames: $(echo f*.png)"
}

# A disc that takes no more costs a message and leaves the old picture whole; a limit on file sizes stands for it.
cp one.png kept.png
code=0
# shellcheck disable=SC2086
(trap '' XFSZ && ulimit -f 1 && "$OV" render scene.ovd -o kept.png $size -s 1 --resume never) >out 2>err || code=$?
[ $code = 4 ] || fail "exit code $code when the disc is full"
shows "kept.png: "
cmp -s one.png kept.png || fail "the old picture is lost"
[ "$(echo kept.png*)" = kept.png ] || fail "files left behind: $(echo kept.png*)"

# Deep pictures: the same for any number of threads, whole on a full disc, and only where there is room for them.
# shellcheck disable=SC2086
{
  expect 0 "$OV" render scene.ovd -o one.exr $size -s 2 --deep --deep-samples 8 --threads 1
  expect 0 "$OV" render scene.ovd -o seven.exr $size -s 2 --deep --deep-samples 8 --threads 7
  cmp -s one.exr seven.exr || fail "the deep picture depends on the number of threads"
  cp one.exr kept.exr
  code=0
  (trap '' XFSZ && ulimit -f 1 && "$OV" render scene.ovd -o kept.exr $size -s 1 --deep --resume never) >out 2>err || code=$?
  [ $code = 4 ] || fail "exit code $code when the disc is full"
  cmp -s one.exr kept.exr || fail "the old deep picture is lost"
  expect 5 "$OV" render scene.ovd -o kept.exr $size -s 1 --deep --deep-samples 1024 --memory 60M
  shows "1024 deep samples a pixel"
  expect 2 "$OV" render scene.ovd -o deep.png $size --deep
  shows "EXR files can"
  expect 2 "$OV" render scene.ovd -o deep.exr $size --deep --layers depth
  expect 2 "$OV" render scene.ovd -o deep.exr $size --deep --denoise
  expect 2 "$OV" render scene.ovd -o deep.exr $size --deep-samples 4
  expect 2 "$OV" render scene.ovd -o deep.exr $size --deep --deep-samples 0
}

# No camera, no light, no object: a picture and words about it.
echo '<ombrivex_project><render name="Render"/></ombrivex_project>' >empty.ovd
# shellcheck disable=SC2086
expect 0 "$OV" render empty.ovd -o empty.png $size -s 1
for what in camera light object; do shows "no $what"; done
[ -s empty.png ] || fail "no picture of an empty project"

# A camera that can't see what was meant: its picture, and an error.
# shellcheck disable=SC2086
{
  expect 1 "$OV" render scene.ovd -o blind.png $size -s 1 --set "Camera.position=0 -100000 0"
  shows "inside /Planet 01"
  expect 1 "$OV" render scene.ovd -o blind.png $size -s 1 --set Camera.use_target=1 --set "Camera.position=0 20000 0" \
    --set "Camera.target=0 20000 0"
  shows "at its target"
  [ -s blind.png ] || fail "no picture of a blind camera"
  rm blind.png
}

# A render that is stopped goes on to the picture that it would have been. A machine that is done before it can be stopped
# gets more to do.
stopped=
for samples in 64 512 4096; do
  rm -f part.png
  # shellcheck disable=SC2086
  "$OV" render scene.ovd -o part.png $size -s $samples --quiet 2>err &
  job=$!
  while [ ! -e part.png ] && kill -0 $job 2>/dev/null; do sleep 0.02; done
  kill -USR1 $job 2>/dev/null || true
  kill -INT $job 2>/dev/null || true
  code=0
  wait $job || code=$?
  [ $code = 0 ] || { stopped=yes; break; }
done
[ -n "$stopped" ] || fail "no render could be stopped"
[ $code = 75 ] || fail "exit code $code of a stopped render"
[ -e part.png.ovcheckpoint ] || fail "no checkpoint"
# Another project's checkpoint is left alone.
# shellcheck disable=SC2086
{
  expect 1 "$OV" render scene.ovd -o part.png $size -s $samples --resume require --set "Sun.strength=1"
  [ -e part.png.ovcheckpoint ] || fail "the checkpoint is gone"
  [ $samples = 4096 ] || {
    expect 0 "$OV" render scene.ovd -o part.png $size -s $samples --resume require
    expect 0 "$OV" render scene.ovd -o whole.png $size -s $samples
    cmp -s part.png whole.png || fail "a resumed picture differs"
    [ ! -e part.png.ovcheckpoint ] || fail "the checkpoint of a finished picture is left"
    expect 1 "$OV" render scene.ovd -o part.png $size -s $samples --resume require
  }
}

# A frame is done when its picture says so: not one whose render was killed.
rm -f part.png*
# shellcheck disable=SC2086
"$OV" render scene.ovd -o part.png $size -s 4096 --quiet 2>err &
job=$!
while [ ! -e part.png ] && kill -0 $job 2>/dev/null; do sleep 0.02; done
kill -KILL $job
wait $job || true
# shellcheck disable=SC2086
{
  expect 0 "$OV" render scene.ovd -o part.png $size -s 3 --skip-existing
  expect 0 "$OV" render scene.ovd -o whole.png $size -s 3
  cmp -s part.png whole.png || fail "an unfinished picture was taken for a finished one"
  expect 0 "$OV" render scene.ovd -o part.png $size -s 3 --skip-existing
  shows "skipped"
}

# Every signal that ends a render leaves a checkpoint, USR1 ends none, and what is a pipe is no checkpoint.
for signal in HUP QUIT XCPU TERM; do
  rm -f part.png*
  # shellcheck disable=SC2086
  "$OV" render scene.ovd -o part.png $size -s 100000 --quiet 2>err &
  job=$!
  # As soon as the program has said what USR1 means.
  until grep -q '^SigCgt:.*[2367abef]..$' /proc/$job/status 2>/dev/null; do sleep 0.001; done
  kill -USR1 $job
  while [ ! -e part.png ] && kill -0 $job 2>/dev/null; do sleep 0.02; done
  kill -$signal $job
  code=0
  wait $job || code=$?
  [ $code = 75 ] || fail "exit code $code of a render that $signal stopped"
  [ -e part.png.ovcheckpoint ] || fail "no checkpoint after $signal"
done
rm -f part.png*
mkfifo part.png.ovcheckpoint
# shellcheck disable=SC2086
{
  expect 0 timeout 60 "$OV" render scene.ovd -o part.png $size -s 1
  shows "is damaged"
  expect 4 timeout 60 "$OV" render scene.ovd -o part.png $size -s 100000 --time 1
  [ -p part.png.ovcheckpoint ] || fail "the pipe is gone"
}
rm part.png.ovcheckpoint

# A picture of other files is no part of this one: a changed texture has what was done refused, and only that.
cp "$SOURCE/scenes/buoy.png" map.png
cat >map.ovd <<'END'
<ombrivex_project><camera name="Camera" position="0 9 0"/><sunlight name="Sun"/><render name="Render"/>
<planet name="Ground" surface_shader="Map" atmosphere_shader=""><image_map_shader name="Map" image_filename="map.png"/></planet>
</ombrivex_project>
END
# shellcheck disable=SC2086
{
  expect 5 "$OV" render map.ovd -o map_out.png $size -s 100000 --time 1
  cp map.png kept_map.png
  printf x >>map.png
  expect 1 "$OV" render map.ovd -o map_out.png $size -s 100000 --resume require
  shows "belongs to another project"
  [ -e map_out.png.ovcheckpoint ] || fail "the checkpoint of another texture is gone"
  cp kept_map.png map.png
  expect 5 "$OV" render map.ovd -o map_out.png $size -s 100000 --time 1 --resume require
  shows "goes on from its checkpoint"
}

# Too little memory to start or to render is told by the exit code that is for it, wherever it is missed: that the formats
# can't be loaded is a matter of the output. 127 is the loader's, before the program runs. Sanitizers want all addresses.
for limit in 100000 160000 180000 220000 280000 400000; do
  [ -z "$SANITIZE" ] || break
  code=0
  # shellcheck disable=SC2086
  (ulimit -v $limit && "$OV" render scene.ovd -o small.png $size -s 1 --resume never) >out 2>err || code=$?
  case $code in
    0 | 4 | 5 | 127) ;;
    *) fail "exit code $code with $limit KiB of addresses" ;;
  esac
  [ $code = 0 ] || [ -s err ] || fail "no message with $limit KiB of addresses"
done
