// Control of the camera simulator, the PC stand-in for the camera library.
//
// The simulator is one process-wide camera: every SunxiCam object drives it,
// and the functions below configure and watch it. It serves NV21 640 x 480
// frames whose sequence number counts from 0 in each session and whose laser
// field follows a repeating pattern (by default left 1, right 8, left 1, ...).
// Each frame's luminance comes from a small rendered scene (a camera on the
// robot, the left and right laser planes, the floor and a flat wall at the
// target distance) or from an image file. A frame's pixels belong to the
// simulator and stay valid until the frame is handed back; a frame still out
// when the next one is taken (or when the camera closes) is reported as a
// buffer leak. Every operation can be made to fail on purpose, and every call
// is reported to the observer. All lengths are in centimetres, all angles in
// degrees. Everything here, and SunxiCam itself, is for one thread at a
// time: the node main thread.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_CAMERA_SIM_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_CAMERA_SIM_H_

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sunxi_cam::sim {

inline constexpr int kWidth = 640;
inline constexpr int kHeight = 480;
// An image file larger than this is refused before it is read.
inline constexpr long long kMaxImageFileBytes = 16LL * 1024 * 1024;
inline constexpr int kFrameBytes = kWidth * kHeight * 3 / 2;  // NV21: luminance, then VU
inline constexpr std::size_t kLumaBytes = static_cast<std::size_t>(kWidth) * kHeight;

// The camera: OpenCV's camera model (lens.h). The robot's frame has its
// origin on the floor right below the camera, x forward, y to the left, z up.
// The ideal renderer draws a pinhole camera: its distortion stays 0.
struct CameraModel {
  double fx = 450, fy = 450;  // focal lengths, pixels
  double cx = 320, cy = 240;  // principal point, pixels
  double height = 5;          // above the floor
  double pitch = 10;          // tilt down from level
  // Radial (k1, k2, k3) and tangential (p1, p2) distortion, OpenCV's order
  // k1 k2 p1 p2 k3.
  double k1 = 0, k2 = 0, p1 = 0, p2 = 0, k3 = 0;
};

// How the pictures are drawn: kIdeal as the simulator always drew them (a
// pinhole camera, a stripe of fixed look, fixed noise); kPhysical through a
// lens with distortion and defocus, laser light with speckle, and a sensor
// with exposure, gain, noise and clipping (docs/camera-sim.md).
enum class Renderer { kIdeal, kPhysical };

// The lens and its light path (kPhysical).
struct Optics {
  double focus = 30;      // cm: where the fixed-focus lens is sharp
  double f_number = 2.8;  // focal length / aperture diameter
  double pixel_size = 3;  // micrometres; the focal length is fx x pixel_size
  double vignetting = 1;  // brightness at the picture's farthest corner, centre 1
};

// The lasers' light (kPhysical), the same for both lasers.
struct LaserLight {
  // Grey levels, at the reference exposure and gain, of the stripe's centre
  // on a surface facing the laser squarely 10 cm from the emitter, before
  // blur and vignetting.
  double power = 200;
  double width = 0.5;        // mm: the sheet's thickness at the emitter (4 sigma)
  double divergence = 2;     // mrad: how fast that thickness grows with range
  double speckle = 0;        // contrast: standard deviation / mean of the stripe's light
  double speckle_grain = 1;  // pixels: the speckle's correlation length (sigma)
};

// The sensor (kPhysical). Exposure is in microseconds, gain in steps of
// 1/gain_unit; the sensor's gain starts at 1x, so smaller settings give 1x.
struct Sensor {
  double conversion = 35;   // electrons per grey level at a gain of 1x
  double full_well = 9000;  // electrons a pixel holds
  double read_noise = 6;    // electrons (standard deviation)
  double prnu = 0.01;       // each pixel's own gain: standard deviation around 1
  int gain_unit = 16;       // the gain setting that is 1x
};

// A chessboard target (inner corners cols x rows) in front of the camera.
// Its pose is in the camera's frame (x right, y down, z ahead): the board's
// centre at (x, y, z), facing the camera squarely when yaw, pitch and roll
// are 0; pitch turns it about the camera's x axis, then yaw about its y
// axis, then roll about its z axis (R = Rz(roll) Ry(yaw) Rx(pitch)). While
// it is on, every frame shows the board, lit evenly, in front of a dark
// room; the lasers draw nothing.
struct Board {
  bool on = false;
  int cols = 9, rows = 6;  // inner corners across and down
  double square = 2.5;     // cm
  double margin = 2.5;     // cm of white beyond the outer squares
  double x = 0, y = 0, z = 40;
  double yaw = 0, pitch = 0, roll = 0;  // degrees
  double white = 50;                    // grey levels of white at the reference exposure and gain
  double black = 0.05;                  // a black square's brightness relative to white
};

// One line laser: a fan of light in a plane through the emitter. With yaw and
// roll 0 the plane is upright and points straight ahead; yaw turns it to the
// left (positive) about the vertical, roll then leans its top to the left
// (positive) about the fan's centre line.
struct LaserModel {
  double x = 0, y = 0, z = 2;  // emitter position on the robot
  double yaw = 0;
  double roll = 0;
  bool on = true;  // an off laser draws no stripe
};

// How a stripe looks across its width.
struct StripeLook {
  double peak = 220;  // brightness of the core
  double core = 2;    // width of the flat core, pixels
  double edge = 1;    // soft edge: Gaussian fall-off (sigma, pixels) beyond the core
};

struct Background {
  double level = 6;    // mean brightness of the dark scene
  double noise = 2;    // noise amplitude (standard deviation)
  double ambient = 0;  // extra light over the whole picture
  uint64_t seed = 1;   // the noise is a fixed function of the seed
};

struct Scene {
  CameraModel camera;
  LaserModel left{0, 2.2, 2, -2, 0, true};
  LaserModel right{0, -2.2, 2, 2, 0, true};
  StripeLook stripe;
  Background background;
  double distance = 30;      // from the camera to the wall, along the floor
  bool wall = true;          // false: an open floor, the stripe runs on to the horizon
  double wall_height = 200;  // the wall's top edge
  // Picture faults, for the outcomes of the stripe cut:
  int second_stripe = 0;           // > 0: a copy of each stripe this many pixels to the right
  int gap_from = -1, gap_to = -1;  // stripe rows gap_from..gap_to (inclusive) left dark
  // Brightness follows exposure x gain relative to the reference when set
  // (kIdeal). kPhysical always follows them: its brightness values are at
  // the reference exposure and gain.
  bool exposure_scaling = false;
  int reference_exposure = 1900, reference_gain = 32;
  Renderer renderer = Renderer::kIdeal;
  Optics optics;
  LaserLight light;
  Sensor sensor;
  Board board;
};

// Which frames an image file stands in for: by the laser lit in the frame
// (low four bits of the laser field: 1 left, 8 right, anything else other).
enum class ImageSlot { kLeft, kRight, kOther };

enum class Operation { kOpen, kClose, kGetFrame, kReturnFrame, kSetExposureGain };
const char* OperationName(Operation op);  // "open", "close", "get_frame", ...

// When an operation fails on purpose. Calls are counted from the moment the
// fault is set: call 1 is the next one.
struct Fault {
  enum class Kind { kNever, kAlways, kNextCalls, kAtCall };
  Kind kind = Kind::kNever;
  int count = 0;  // kNextCalls: how many; kAtCall: which call

  static Fault Never() { return {}; }
  static Fault Always() { return {Kind::kAlways, 0}; }
  static Fault NextCalls(int n) { return {Kind::kNextCalls, n}; }
  static Fault AtCall(int k) { return {Kind::kAtCall, k}; }
};

// Sees every call. `ok` is the call's result; `reason` says why it failed
// (empty on success). Callbacks must not call back into the simulator.
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void OnOpenCamera(int /*camera*/, uint32_t /*pixel_format*/, int /*fps*/, int /*width*/,
                            int /*height*/, bool /*ok*/, const std::string& /*reason*/) {}
  virtual void OnCloseCamera(bool /*ok*/, const std::string& /*reason*/) {}
  // On success: the frame's sequence number, laser field and buffer slot.
  virtual void OnGetImageFrame(bool /*ok*/, int64_t /*index*/, uint64_t /*laser*/,
                               int64_t /*buffer*/, const std::string& /*reason*/) {}
  virtual void OnReturnImageFrame(bool /*ok*/, int64_t /*index*/, const std::string& /*reason*/) {}
  virtual void OnSetExposureGain(int /*exposure*/, int /*gain*/, bool /*ok*/,
                                 const std::string& /*reason*/) {}
  // A frame not handed back before the next was taken or the camera closed.
  virtual void OnBufferLeak(int64_t /*index*/, int64_t /*buffer*/) {}
};

// What the simulator has seen since the last Reset().
struct Status {
  bool open = false;
  int open_count = 0;  // successful opens
  int64_t frames = 0;  // frames served in the current (or last) session
  int frames_out = 0;  // frames taken and not handed back
  int leaks = 0;       // buffer leaks reported
  int exposure = 0;    // last exposure and gain the sensor accepted
  int gain = 0;
  int exposure_sets = 0;  // accepted settings
  int calls[5] = {};      // calls per Operation, failed ones included
  int failures[5] = {};   // failed calls per Operation, whatever the reason
};

// Back to the defaults: camera closed, nothing out, default scene and
// pattern, no image files, no faults, four frame buffers, no observer,
// status cleared.
void Reset();

// The scene; SetScene replaces it as a whole.
const Scene& GetScene();
void SetScene(const Scene& scene);
// The wall distance alone.
void SetDistance(double distance);

// The laser field of frame i is pattern[i % size]. Throws
// std::invalid_argument on an empty pattern.
void SetLaserPattern(const std::vector<uint64_t>& pattern);
const std::vector<uint64_t>& LaserPattern();

// Frames of that slot show the image file instead of the scene. The file
// must be readable by OpenCV and be a 640 x 480 single-channel 8-bit image;
// anything else throws std::invalid_argument that says what was wrong, and
// changes nothing. An empty path goes back to the scene.
void UseImageFile(ImageSlot slot, const std::string& path);

void SetFault(Operation op, Fault fault);
// How many frame buffers the camera has (1 or more); frames can only be
// taken while one is free. Applies from the next open.
void SetBufferCount(int count);

// Not owned; null for none.
void SetObserver(Observer* observer);

Status GetStatus();

// The luminance plane the camera shows for a frame with that laser field,
// as rendered (and cached) for the current settings.
const uint8_t* Luminance(uint64_t laser);

// A laser's plane of light in the robot's frame: every point p of the plane
// has nx * p.x + ny * p.y + nz * p.z == offset. (nx, ny, nz) is a unit
// vector with ny > 0 (it points to the robot's left); offset is in
// centimetres. With the laser's yaw and roll: (-sin yaw cos roll,
// cos yaw cos roll, sin roll), and offset = normal . emitter.
struct LaserPlane {
  double nx = 0, ny = 1, nz = 0;
  double offset = 0;
};

// The plane `laser` lights: exactly the plane its stripes are drawn from.
LaserPlane PlaneOf(const LaserModel& laser);

// A rigid motion in OpenCV's convention: x_camera = rotation x + translation
// (what cv::Rodrigues of an rvec and a tvec give).
struct CameraPose {
  double rotation[3][3];
  double translation[3];
};

// The chessboard as a calibration sees it: its geometry, and its pose with
// the board's own frame (origin at the first inner corner, top left, x along
// a row of corners, y down the columns, z into the board; cm) in the
// camera's frame, so corner (i, j) is at (i square, j square, 0).
struct BoardTruth {
  bool on = false;
  int cols = 9, rows = 6;
  double square = 2.5, margin = 2.5;
  CameraPose pose{};
};

// What the scene's pictures show, as the simulator draws them: the camera,
// the plane of each laser, and the wall. It is the truth that reference
// calculations are measured against. When frames show image files or a
// picture folder, it is still the scene's truth, which those pictures need
// not show.
struct SceneTruth {
  CameraModel camera;
  LaserPlane left, right;
  bool left_on = true, right_on = true;
  bool wall = true;          // a wall across the view at `distance`
  double distance = 30;      // from the camera to the wall, along the floor
  double wall_height = 200;  // the wall's top edge above the floor
  // The camera's intrinsics and distortion are in `camera`; its pose on the
  // robot (robot frame to camera frame) here.
  CameraPose camera_pose{};
  BoardTruth board;
  Renderer renderer = Renderer::kIdeal;
};

// The truth of the current scene (GetScene()). Reading it changes nothing.
SceneTruth Truth();

// What keeps the camera from showing the image file `path`, "" when
// nothing does: the reason the "images" setting would give, naming the file
// ("image file 'a.png' is 320 x 240 with 3 channel(s) of 8 bits; the camera
// needs 640 x 480 with one 8-bit channel (grayscale)").
std::string ImageFileProblem(const std::string& path);

// The names of the shipped presets, sorted ("harsh", "ideal", "robot").
std::vector<std::string> PresetNames();
// The text of a shipped preset's JSON file; "" when there is no such preset.
std::string PresetText(const std::string& name);

// Applies a JSON object of camera settings (docs/camera-sim.md). All or
// nothing: on a bad member it throws std::invalid_argument whose message
// names the member (for example "camera sim: scene.camera.fx must be a
// number"), and the settings stay as they were.
void Configure(const rapidjson::Value& settings);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_CAMERA_SIM_H_
