#include "readers/particles.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>

#include "failure.h"
#include "support/cache_folder.h"
#include "support/seed.h"
#include "tools/run.h"

namespace Velmor::Tool {
namespace {

using Test::CacheFolder;
using Test::writeFile;

template <class T>
std::string big(T value) {
  std::string bytes(sizeof(T), '\0');
  std::memcpy(bytes.data(), &value, sizeof(T));
  return {bytes.rbegin(), bytes.rend()};
}

template <class T>
std::string little(T value) {
  std::string bytes(sizeof(T), '\0');
  std::memcpy(bytes.data(), &value, sizeof(T));
  return bytes;
}

std::string base64(std::string const& bytes) {
  static char const digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned bits = 0;
    for (std::size_t n = 0; n < 3; ++n) {
      bits = bits << 8 | (i + n < bytes.size() ? static_cast<unsigned char>(bytes[i + n]) : 0u);
    }
    for (unsigned n = 0; n < 4; ++n) {
      text += i + n <= bytes.size() ? digits[bits >> (18 - 6 * n) & 63] : '=';
    }
  }
  return text;
}

std::string deflated(std::string const& bytes) {
  auto size = compressBound(bytes.size());
  std::string packed(size, '\0');
  compress(reinterpret_cast<Bytef*>(packed.data()), &size,
           reinterpret_cast<Bytef const*>(bytes.data()), bytes.size());
  packed.resize(size);
  return packed;
}

std::string gzipped(std::string const& bytes) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string packed(deflateBound(&stream, bytes.size()), '\0');
  auto copy = bytes;
  stream.next_in = reinterpret_cast<Bytef*>(copy.data());
  stream.avail_in = static_cast<uInt>(copy.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

// Two particles: (1, 2, 3) and (4, 5, 6.5), with velocities and a number each.
std::string bgeo() {
  std::string file = "BgeoV";
  for (int const n : {5, 2, 0, 0, 0, 3, 0, 0, 0}) file += big<std::int32_t>(n);
  auto const define = [&file](std::string const& name, std::int16_t size, std::int32_t type) {
    file += big(static_cast<std::int16_t>(name.size())) + name + big(size) + big(type);
    for (int n = 0; n < size; ++n) file += big(0.f);
  };
  define("v", 3, 5);
  define("id", 1, 1);
  define("colour", 4, 0);
  for (float const x : {1.f, 2.f, 3.f, 1.f, 7.f, 8.f, 9.f}) file += big(x);
  file += big<std::int32_t>(41) + std::string(16, '\0');
  for (float const x : {8.f, 10.f, 13.f, 2.f, -7.f, -8.f, -9.f}) file += big(x);
  file += big<std::int32_t>(-42) + std::string(16, '\0');
  return file;
}

std::string vtkBinary() {
  std::string file =
      "# vtk DataFile Version 4.1\nwater\nBINARY\nDATASET UNSTRUCTURED_GRID\nPOINTS 2 double\n";
  for (double const x : {1., 2., 3., 4., 5., 6.5}) file += big(x);
  file += "\nCELLS 2 4\n" + big<std::int32_t>(1) + big<std::int32_t>(0) + big<std::int32_t>(1) +
          big<std::int32_t>(1) + "\nCELL_TYPES 2\n" + big<std::int32_t>(1) + big<std::int32_t>(1);
  file += "\nPOINT_DATA 2\nSCALARS id unsigned_int 1\nLOOKUP_TABLE id_table\n" +
          big<std::uint32_t>(41) + big<std::uint32_t>(43);
  file += "\nFIELD FieldData 1\nvel 3 2 float\n";
  for (float const x : {7.f, 8.f, 9.f, -7.f, -8.f, -9.f}) file += big(x);
  return file + "\n";
}

std::string const vtkAscii =
    "# vtk DataFile Version 5.1\nwater\nASCII\nDATASET POLYDATA\nPOINTS 2 float\n1 2 3 4 5 6.5\n"
    "VERTICES 3 2\nOFFSETS vtktypeint64\n0 1 2\nCONNECTIVITY vtktypeint64\n0 1\n"
    "POINT_DATA 2\nVECTORS v float\n7 8 9 -7 -8 -9\nMETADATA\nINFORMATION 0\n\n"
    "SCALARS id int\nLOOKUP_TABLE default\n41 43\n";

// The three ways in which arrays lie in the file, plain and packed.
std::string vtu(std::string const& format, bool packed) {
  std::string points, velocities;
  for (double const x : {1., 2., 3., 4., 5., 6.5}) points += little(x);
  for (float const x : {7.f, 8.f, -7.f, -8.f}) velocities += little(x);
  auto const block = [&](std::string const& data, bool text) {
    if (!packed) {
      auto const bytes = little(static_cast<std::uint64_t>(data.size())) + data;
      return text ? base64(bytes) : bytes;
    }
    auto const body = deflated(data);
    auto const head = little<std::uint64_t>(1) + little<std::uint64_t>(data.size()) +
                      little<std::uint64_t>(0) + little<std::uint64_t>(body.size());
    return text ? base64(head) + base64(body) : head + body;
  };
  bool const appended = format != "ascii" && format != "binary";
  std::string tail;
  auto const array = [&](std::string const& attributes, std::string const& data,
                         std::string const& ascii) {
    std::string const open = "<DataArray " + attributes + " format=\"";
    if (format == "ascii") return open + "ascii\">" + ascii + "</DataArray>";
    if (format == "binary") return open + "binary\">\n " + block(data, true) + "\n</DataArray>";
    auto const at = std::to_string(tail.size());
    tail += block(data, format == "base64");
    return open + "appended\" offset=\"" + at + "\"/>";
  };
  std::string file =
      "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" byte_order=\"LittleEndian\" "
      "header_type=\"UInt64\"" +
      std::string(packed ? " compressor=\"vtkZLibDataCompressor\"" : "") +
      "><UnstructuredGrid><Piece NumberOfPoints=\"2\" NumberOfCells=\"0\"><Points>" +
      array("type=\"Float64\" NumberOfComponents=\"3\"", points, "1 2 3 4 5 6.5") +
      "</Points><PointData>" +
      array("type=\"Float32\" Name=\"velocity\" NumberOfComponents=\"2\"", velocities,
            "7 8 -7 -8") +
      "</PointData></Piece></UnstructuredGrid>";
  if (appended) file += "<AppendedData encoding=\"" + format + "\">\n_" + tail + "</AppendedData>";
  return file + "</VTKFile>\n";
}

class ReadParticles : public testing::Test {
 protected:
  std::string file(std::string const& name, std::string const& content) const {
    auto const path = folder_.path().str() + "/" + name;
    writeFile(path, content);
    return path;
  }
  Particles read(std::string const& name, std::string const& content) const {
    return readParticles(file(name, content));
  }
  std::string refusal(std::string const& name, std::string const& content) const {
    try {
      read(name, content);
    } catch (Failure const& e) {
      EXPECT_EQ(e.code(), ExitCode::Input);
      EXPECT_NE(e.subject().find(name), std::string::npos);
      return e.what();
    }
    return "";
  }

 private:
  CacheFolder folder_;
};

std::vector<double> const positions{1., 2., 3., 4., 5., 6.5};

void expectVelocity(Particles const& particles, std::vector<double> const& expected) {
  auto const* const velocity = particles.find("velocity");
  ASSERT_NE(velocity, nullptr);
  EXPECT_EQ(velocity->components, 3);
  EXPECT_EQ(velocity->values, expected);
}

TEST_F(ReadParticles, ClassicGeometryDividesByItsWeightAndKeepsAttributes) {
  auto const particles = read("a.bgeo", bgeo());
  EXPECT_EQ(particles.positions, positions);
  expectVelocity(particles, {7., 8., 9., -7., -8., -9.});
  EXPECT_EQ(particles.find("id")->values, (std::vector{41., -42.}));
  EXPECT_TRUE(particles.find("id")->integer);
  ASSERT_EQ(particles.skipped.size(), 1u);
  EXPECT_NE(particles.skipped[0].find("colour"), std::string::npos);
}

TEST_F(ReadParticles, LegacyVtkIsReadAsTextAndAsBigEndianBytes) {
  for (auto const& content : {vtkBinary(), vtkAscii}) {
    auto const particles = read("a.vtk", content);
    EXPECT_EQ(particles.positions, positions);
    expectVelocity(particles, {7., 8., 9., -7., -8., -9.});
    EXPECT_EQ(particles.find("id")->values, (std::vector{41., 43.}));
  }
}

TEST_F(ReadParticles, VtkXmlIsReadHoweverItsArraysLie) {
  for (auto const* format : {"ascii", "binary", "raw", "base64"}) {
    for (bool const packed : {false, true}) {
      SCOPED_TRACE(std::string(format) + (packed ? ", packed" : ""));
      auto const particles = read("a.vtu", vtu(format, packed));
      EXPECT_EQ(particles.positions, positions);
      expectVelocity(particles, {7., 8., 0., -7., -8., 0.});
    }
  }
}

TEST_F(ReadParticles, PlainTextHasNamesOrNone) {
  auto const csv = read("a.csv", "x,y,z,vx,vy,vz,rho\n1,2,3,7,8,9,1000\n4,5,6.5,-7,-8,-9,998\n");
  EXPECT_EQ(csv.positions, positions);
  expectVelocity(csv, {7., 8., 9., -7., -8., -9.});
  EXPECT_EQ(csv.find("density")->values, (std::vector{1000., 998.}));
  EXPECT_EQ(read("a.xyz", "1 2 3\n# note\n\n4 5 6.5\n").positions, positions);
  EXPECT_EQ(read("b.xyz", "2\nwater\nO 1 2 3\nH 4 5 6.5\n").positions, positions);
}

TEST_F(ReadParticles, NamesOfVelocityAreKnownInEverySpelling) {
  for (auto const* names : {"vx vy vz", "v_x v_y v_z", "velocity_0 velocity_1 velocity_2",
                            "Velocity:0 Velocity:1 Velocity:2", "u v w", "U.x U.y U.z"}) {
    SCOPED_TRACE(names);
    expectVelocity(read("a.csv", std::string("x y z ") + names + "\n1 2 3 7 8 9\n"), {7., 8., 9.});
  }
}

TEST_F(ReadParticles, AnIntegerNamedLikeAVelocityIsNone) {
  auto const particles = read("a.csv", "x y z velocity\n1 2 3 4\n");
  EXPECT_EQ(particles.find("velocity"), nullptr);
  EXPECT_NE(particles.find("velocity_other"), nullptr);
}

TEST_F(ReadParticles, OtherFormatsAreNamed) {
  EXPECT_NE(refusal("a.bgeo", "\x7FNSJb....").find("JSON"), std::string::npos);
  EXPECT_NE(refusal("b.bgeo", "[\n\t\"fileversion\"").find("JSON"), std::string::npos);
  EXPECT_NE(refusal("a.geo", "PGEOMETRY V5\n").find(".geo"), std::string::npos);
  EXPECT_NE(refusal("a.nvdb", "NanoVDB0....").find("NanoVDB"), std::string::npos);
  EXPECT_NE(refusal("a.obj", "v 1 2 3\n").find("mesh"), std::string::npos);
  EXPECT_NE(refusal("a.bobj.gz", "x").find("mesh"), std::string::npos);
  EXPECT_NE(refusal("a.uni", "x").find(".uni"), std::string::npos);
  EXPECT_NE(refusal("a.grid", "0\n1\n").find(".grid"), std::string::npos);
  EXPECT_NE(refusal("a.fbx", "x").find("known are"), std::string::npos);
  EXPECT_NE(refusal("a.vtk", "").find("empty"), std::string::npos);
}

TEST_F(ReadParticles, GzipIsBelievedOnlyIfItsChecksumFits) {
  auto const packed = gzipped(bgeo());
  EXPECT_EQ(read("good.bgeo", packed).count(), 2u);
  for (std::size_t const fromEnd : {8, 5, 4, 1}) {  // the checksum, then the length
    auto bad = packed;
    bad[bad.size() - fromEnd] ^= 1;
    EXPECT_NE(refusal("bad.bgeo", bad).find("the packed data are damaged"), std::string::npos);
  }
  EXPECT_NE(refusal("cut.bgeo", packed.substr(0, packed.size() - 3)).find("end too early"),
            std::string::npos);
}

TEST_F(ReadParticles, CountsBeyondTheFileAreNotBelieved) {
  auto const bad = bgeo().replace(9, 4, big<std::int32_t>(0x7FFFFFFF));
  EXPECT_NE(refusal("a.bgeo", bad).find("too short"), std::string::npos);
  EXPECT_NE(refusal("a.vtk",
                    "# vtk DataFile Version 4.1\nx\nBINARY\nDATASET POLYDATA\nPOINTS "
                    "9999999999999999999 float\n")
                .find("too short"),
            std::string::npos);
  auto xml = vtu("raw", true);
  xml.replace(xml.find("\"2\""), 3, "\"9000000000000000000\"");
  EXPECT_NE(refusal("a.vtu", xml).find("fewer values"), std::string::npos);
  for (std::string const form : {"ascii", "binary_little_endian"}) {
    EXPECT_NE(refusal("a.ply", "ply\nformat " + form +
                                   " 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                                   "property float z\nend_header\n1 2 3 4 5 6 7 8")
                  .find("too short for 3 of 'vertex'"),
              std::string::npos)
        << form;
  }
}

// What is asked for and what is there are far apart: 500 MB, and half of one.
TEST_F(ReadParticles, MemoryGrowsWithWhatIsThereAndNotWithWhatIsPromised) {
  std::string const rubbish(std::size_t{1} << 19, 'x');
  auto const path = file(
      "a.vtu",
      "<VTKFile type=\"PolyData\" byte_order=\"LittleEndian\" header_type=\"UInt64\" "
      "compressor=\"vtkZLibDataCompressor\"><PolyData><Piece NumberOfPoints=\"20000000\"><Points>"
      "<DataArray type=\"Float64\" NumberOfComponents=\"3\" format=\"appended\" offset=\"0\"/>"
      "</Points></Piece></PolyData><AppendedData encoding=\"raw\">_" +
          little<std::uint64_t>(1) + little<std::uint64_t>(500'000'000) + little<std::uint64_t>(0) +
          little<std::uint64_t>(rubbish.size()) + rubbish + "</AppendedData></VTKFile>");
  auto const run = Velmor::Test::runCommand(
      {"import", path, "--object", "a", "--cache", path + ".cache", "--voxel-size", "1"});
  EXPECT_EQ(run.exit, 3) << run.err;
  EXPECT_NE(run.err.find("a packed block is damaged"), std::string::npos) << run.err;
  EXPECT_LT(run.peakMemory, std::size_t{300} << 20);
}

TEST_F(ReadParticles, ArraysOfOnePlaceAreNoWayToMoreMemory) {
  std::string arrays, data;
  for (int n = 0; n < 300; ++n) data += little(0.5 * n);
  for (auto const* name : {"a", "b", "c"}) {
    arrays += std::string("<DataArray type=\"Float64\" Name=\"") + name +
              "\" NumberOfComponents=\"3\" format=\"appended\" offset=\"0\"/>";
  }
  EXPECT_NE(refusal("a.vtu",
                    "<VTKFile type=\"PolyData\" byte_order=\"LittleEndian\" "
                    "header_type=\"UInt64\"><PolyData><Piece NumberOfPoints=\"100\"><Points>" +
                        arrays + "</Points><PointData>" + arrays +
                        "</PointData></Piece></PolyData><AppendedData encoding=\"raw\">_" +
                        little<std::uint64_t>(data.size()) + data + "</AppendedData></VTKFile>")
                .find("lies where others lie"),
            std::string::npos);
}

// Damaged files give particles or a message, never anything else.
TEST_F(ReadParticles, DamageIsSurvived) {
  auto const seed = Velmor::Test::newSeed();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::vector<std::pair<std::string, std::string>> const files{{"a.bgeo", bgeo()},
                                                               {"a.vtk", vtkBinary()},
                                                               {"b.vtk", vtkAscii},
                                                               {"a.vtu", vtu("raw", true)},
                                                               {"b.vtu", vtu("binary", true)},
                                                               {"c.vtu", vtu("base64", false)},
                                                               {"d.vtu", vtu("ascii", false)},
                                                               {"a.csv", "x,y,z,vx\n1,2,3,4\n"},
                                                               {"a.xyz", "2\n\nO 1 2 3\n"}};
  for (auto const& [name, whole] : files) {
    for (int round = 0; round < 150; ++round) {
      auto bytes = whole;
      for (int n = static_cast<int>(random() % 4); n >= 0; --n) {
        bytes[random() % bytes.size()] = static_cast<char>(random());
      }
      if (round % 3 == 0) bytes.resize(random() % bytes.size());
      try {
        auto const particles = read(name, bytes);
        for (auto const& attribute : particles.attributes) {
          EXPECT_EQ(attribute.values.size(),
                    particles.count() * static_cast<std::size_t>(attribute.components));
        }
      } catch (Failure const& e) {
        EXPECT_EQ(e.code(), ExitCode::Input) << e.what();
      }
    }
  }
}

struct Shared {
  char const* file;
  std::size_t count;
};

TEST(SharedParticles, EverySetIsReadWithItsCount) {
  std::filesystem::path const folder = VELMOR_SHARED_DATA;
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << folder << " is absent";
  for (auto const& [file, count] : std::initializer_list<Shared>{
           {"splashsurf/cube_2366_particles.vtk", 2366},
           {"splashsurf/cube_8_particles.vtk", 8},
           {"splashsurf/cube_8_particles.vtu", 8},
           {"splashsurf/dam_break_frame_23_24389_particles.bgeo", 24389},
           {"splashsurf/dam_break_frame_9_6859_particles.bgeo", 6859},
           {"splashsurf/double_dam_break_frame_01_4732_particles.vtk", 4732},
           {"splashsurf/double_dam_break_frame_26_4732_particles.vtk", 4732},
           {"splashsurf/fluid_250_particles.vtu", 250},
           {"splashsurf/free_particles_1000_particles.vtk", 1000},
           {"splashsurf/free_particles_125_particles.vtk", 125},
           {"splashsurf/hilbert2_18856_particles.vtk", 18856},
           {"splashsurf/hilbert2_7954_particles.vtk", 7954},
           {"splashsurf/octocat_32614_particles.bgeo", 32614},
           {"splashsurf/pentagonal_hexecontahedron_32286_particles.bgeo", 32286},
           {"splashsurf/ParticleData_Fluid_5.vtk", 4732},
           {"splashsurf/ParticleData_Random_1000.vtk", 1000},
           {"splashsurf/cube_normals.ply", 24},
           {"splishsplash/beam_r_0.025.bgeo", 8982},
           {"splishsplash/bunny.bgeo", 7706},
           {"splishsplash/bunny2.bgeo", 4208},
           {"splishsplash/particle_grid.bgeo", 400},
           {"splishsplash/sphere.bgeo", 12394},
           {"partio/base.bgeo", 5},
           {"partio/json.bgeo", 5},
           {"partio/reindeer.bgeo", 16},
           {"cortex/points.vdb", 8},
           {"cortex/particleTest.0004.bgeo", 17},
           {"cortex/particleTest.0006.bgeo", 26},
           {"dl-openvdb-query/sphere_points.vdb", 9802},
           {"trixiparticles/fluid_1_0.vtu", 1250},
           {"trixiparticles/fluid_1_25.vtu", 1250},
           {"trixiparticles/fluid_1_50.vtu", 1250},
           {"trixiparticles/boundary_1_50.vtu", 936},
           {"blender-bake/liquid48_float/data/fluid_data_0010.vdb", 13718},
           {"blender-bake/liquid48_float/particles/fluid_particles_0010.vdb", 66184}}) {
    SCOPED_TRACE(file);
    if (!std::filesystem::exists(folder / file)) continue;
    try {
      EXPECT_EQ(readParticles((folder / file).string()).count(), count);
    } catch (Failure const& e) {
      ADD_FAILURE() << e.what();
    }
  }
  auto const bake = folder / "blender-bake/liquid48_float/data/fluid_data_0010.vdb";
  EXPECT_NE(readParticles(bake.string()).find("velocity"), nullptr);
}

}  // namespace
}  // namespace Velmor::Tool
