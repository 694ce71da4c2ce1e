// A compute shader with a picture's planes, on Mesa's software Vulkan: the same on every machine.
#pragma once

#include <cstdint>
#include <vector>

#include <vulkan/vulkan_raii.hpp>

namespace Veldrift {

// Runs the colour conversion's bindings: 0 the frame, 1 the luma plane, 2 the chroma plane. What
// Vulkan refuses is thrown.
class SoftwareVulkan {
 public:
  explicit SoftwareVulkan(const std::vector<uint32_t>& shader);

  // A packed frame of BGRA; as many groups as the sides in 16ths, rounded up. The planes as NV12,
  // packed, where the shader writes nothing a mark.
  std::vector<uint8_t> Convert(const std::vector<uint8_t>& bgra, uint32_t width, uint32_t height);

  static constexpr uint8_t kUnwritten = 0xEE;

 private:
  struct Image {
    vk::raii::Image image;
    vk::raii::DeviceMemory memory;
    vk::raii::ImageView view;
    vk::Extent3D size;
  };
  struct Buffer {
    vk::raii::Buffer buffer;
    vk::raii::DeviceMemory memory;
    uint8_t* bytes;
  };

  vk::raii::PhysicalDevice FindDevice() const;
  vk::raii::Device MakeDevice() const;
  vk::raii::DescriptorSetLayout MakeBindings() const;
  vk::raii::Pipeline MakePipeline(const std::vector<uint32_t>& shader) const;
  vk::raii::DeviceMemory Allocate(const vk::MemoryRequirements& wanted,
                                  vk::MemoryPropertyFlags flags) const;
  Image MakeImage(vk::Extent3D size, vk::Format format, vk::ImageUsageFlags usage) const;
  Buffer MakeBuffer(size_t bytes) const;
  vk::raii::DescriptorSet Bind(const std::vector<const Image*>& images) const;
  void Submit(const vk::raii::CommandBuffer& commands) const;

  vk::raii::Context context_;
  vk::raii::Instance instance_;
  vk::raii::PhysicalDevice physical_;
  vk::raii::Device device_;
  vk::raii::DescriptorSetLayout bindings_;
  vk::raii::PipelineLayout layout_;
  vk::raii::Pipeline pipeline_;
  vk::raii::DescriptorPool descriptors_;
  vk::raii::CommandPool commands_;
};

}  // namespace Veldrift
