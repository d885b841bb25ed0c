# Heightfields as LWO meshes, as another program reads them: that opens them, and terrain faces up.
if ! command -v assimp >/dev/null 2>&1; then
  echo "left out: assimp isn't installed (Debian package assimp-utils)"
  return 0
fi
# A slope of 2 in 10 towards the east, over more points than indices of two bytes reach.
awk 'BEGIN {
  print "ncols 300\nnrows 230\nxllcorner 0\nyllcorner 0\ncellsize 10"
  for (y = 0; y < 230; ++y) { for (x = 0; x < 300; ++x) printf "%d ", 2 * x + (y == 0 && x == 0) * 50; print "" }
}' >slope.asc
cat >scene.ovd <<'END'
<ombrivex_project>
  <heightfield_load name="Slope" filename="slope.asc"/>
</ombrivex_project>
END
expect 0 "$OV" heightfield scene.ovd Slope -o slope.lwo --quiet
expect 0 assimp info slope.lwo
prints "Faces:              136942"
prints "Default"
# The reader's file has right-handed axes, and fronts whose corners go round counter-clockwise. North is where
# it puts the raised corner in the north-west.
expect 0 assimp export slope.lwo slope.obj
awk '
  $1 == "v" { ++n; x[n] = $2; y[n] = $3; z[n] = $4; if ($3 > 49 && $2 < 1) corner = $4 }
  $1 == "f" {
    split($2, a, "/"); split($3, b, "/"); split($4, c, "/")
    ux = x[b[1]] - x[a[1]]; uz = z[b[1]] - z[a[1]]; vx = x[c[1]] - x[a[1]]; vz = z[c[1]] - z[a[1]]
    up = uz * vx - ux * vz
    if (up <= 0) ++down
    area += up / 2; ++faces
  }
  END {
    if (down > 0) { print down " triangles face down"; exit 1 }
    if (faces != 136942) { print faces " triangles"; exit 1 }
    if (area < 6847099 || area > 6847101) { print "area " area; exit 1 }
    if (corner != -2290) { print "the north-western corner lies at z = " corner; exit 1 }
  }' slope.obj >report || fail "$(cat report)"
