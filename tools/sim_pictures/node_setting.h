// The exposure and gain the calibration node chooses for a picture, asked of
// the node's own code (its param_choose, linked in), so sim-pictures writes
// each picture as the robot would have stored it.
#ifndef LASERCALI_TOOLS_SIM_PICTURES_NODE_SETTING_H_
#define LASERCALI_TOOLS_SIM_PICTURES_NODE_SETTING_H_

namespace simpictures {

struct Setting {
  int exposure = 0;
  int gain = 0;
};

// For a wall at `distance` cm: a whole distance from the node's factory
// table (or its app table, `app`); a distance with a fraction is the
// distance check's wall (the shipped rounds put it at 27.5 cm), which the
// node takes with its distance check's setting.
Setting NodeSetting(double distance, bool app);
// For the chessboard picture.
Setting NodeChessboardSetting(bool app);

}  // namespace simpictures

#endif  // LASERCALI_TOOLS_SIM_PICTURES_NODE_SETTING_H_
